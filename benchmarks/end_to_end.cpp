// Measures the daemon from a caller's side, on a private machine with a private bus, next to the
// least that a helper can be (end_to_end_floor.cpp) and next to what a user would take instead.
//
//   end_to_end [quick|full|once] [--json FILE]
//
// quick takes about 25 seconds, full some minutes; once only shows that everything works. What
// is compared takes turns, on one processor, so that whatever else the machine does hits both
// alike; a ratio is made of one round's figures, and the table shows the median of the rounds.
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <thread>

#include "benchmarks/end_to_end_contenders.h"
#include "benchmarks/end_to_end_peers.h"
#include "benchmarks/end_to_end_process.h"
#include "benchmarks/end_to_end_report.h"
#include "tests/PrivateMachine.h"
#include "tests/Support.h"
#include "utils/BrimletdClient.h"

namespace BrimletBench {
namespace {

namespace fs = std::filesystem;
using BrimletTest::Command;
using BrimletTest::Daemon;
using BrimletTest::kCorePath;
using BrimletTest::Process;
using BrimletTest::RunAndRead;
using std::chrono::milliseconds;

const std::string kFloorPath = "/opt/floor";
const std::string kFloorCxxPath = "/opt/floor_cxx";
const std::string kIdlePeerPath = "/usr/libexec/rtkit-daemon";
const std::string kLinesPath = "/opt/lines";
constexpr int kLines = 100000;

const Request kTrivial = {"echo --add", "--add", "Run"};
const Request kRefused = {"echo --nope", "ExecutePopen failed!", "Refuse"};

constexpr const char* kNotes = R"(
The floor is a bus service that replies a fixed text, or runs the line with popen and replies
the output. It leaves out: asking the bus who the caller is, and reading its executable;
judging the line; the log; the bounds; the parent. Its caller does not ask who has replied. It is
linked without the C++ library; for the memory alone, another line shows the floor with it.
A peer is started without a shell by an ordinary user, may do everything unasked, and runs the
line with "sh -c". All of it runs on one processor.)";

// How much is measured.
struct Extent {
  int starts;
  int rounds;
  int requests;  // per round
  int peerRequests;
  milliseconds rateTime;
  int tracedRequests;
  milliseconds idleTime;
};

Extent ExtentOf(const std::string& mode) {
  if (mode == "quick") {
    return {3, 11, 60, 5, milliseconds(150), 10, milliseconds(4000)};
  }
  if (mode == "full") {
    return {15, 40, 100, 10, milliseconds(300), 20, milliseconds(20000)};
  }
  if (mode == "once") {
    return {1, 2, 3, 1, milliseconds(20), 2, milliseconds(2000)};
  }
  throw std::runtime_error("no such mode: " + mode);
}

// The helper and its floor, both running.
struct Contenders {
  Contenders() {
    Velmar::Utils::SetBrimletdPid(daemon.Pid());
    WaitForName(kFloorName, floor.Pid());
  }

  const Daemon daemon;
  const Process floor{{kFloorPath, kFloorName}};
};

class EndToEnd {
 public:
  explicit EndToEnd(const Extent& extent)
      : mExtent(extent),
        mOneByteLines{"cat${IFS}" + kLinesPath + ";: --add", std::string(kLines - 1, '\n'), "Run"} {
    BrimletTest::WriteWhole(kLinesPath, std::string(kLines, '\n'));
  }

  const Report& Run() {
    MeasureMemory();
    mContenders.emplace();
    MeasureWakeUps();
    for (int i = 0; i < mExtent.rounds; ++i) {
      MeasureTrivial();
      MeasureLatency("one refused command", kRefused, mExtent.requests, 1.3);
      MeasureLatency("100 kB in one-byte lines", mOneByteLines, mExtent.requests / 5 + 1, 1.15);
      for (const int callers : {1, 4, 16}) {
        MeasureRates(callers);
      }
    }
    MeasureSystemCalls("trivial", kTrivial, 24);
    MeasureSystemCalls("refused", kRefused, 16);
    MeasureSize();
    for (const Peer& peer : mPeers.All()) {
      if (!peer.runner) {
        mReport.AddNote(peer.name + ": not measured: " + peer.whyNot);
      }
    }
    mReport.AddNote(kNotes);
    return mReport;
  }

 private:
  static std::unique_ptr<Process> StartBus(const std::string& folder) {
    setenv("HOME", folder.c_str(), 1);
    // The floor and the peers have rules of their own elsewhere.
    return BrimletTest::StartPrivateBus(folder, R"(
        <policy context="mandatory"><allow own="*"/><allow send_type="method_call"/></policy>)");
  }

  // Both take turns. Returns the helper's p10.
  double MeasureLatency(const std::string& line, const Request& request, int requests,
                        double bound) {
    const double before = ProcessorTime(mContenders->daemon.Pid());
    const double floorBefore = ProcessorTime(mContenders->floor.Pid());
    Series helper;
    Series floor;
    for (int i = 0; i < requests; ++i) {
      helper.push_back(Measure([&] { CallHelper(request); }));
      floor.push_back(Measure([&] { CallFloor(request); }));
    }
    mReport.AddValues(line, "us", "helper", helper);
    mReport.AddValues(line, "us", "floor", floor);
    const double p10 = Percentile(helper, 10);
    mReport.AddRatio(line + ", p10", "floor", bound, p10 / Percentile(floor, 10));
    const std::string timeLine = line + ", in the service";
    const double time = (ProcessorTime(mContenders->daemon.Pid()) - before) / requests;
    const double floorTime = (ProcessorTime(mContenders->floor.Pid()) - floorBefore) / requests;
    mReport.AddValues(timeLine, "us of processor", "helper", {time});
    mReport.AddValues(timeLine, "us of processor", "floor", {floorTime});
    mReport.AddRatio(timeLine, "floor", kNoBound, time / floorTime);
    return p10;
  }

  void MeasureTrivial() {
    const std::string line = "one trivial command";
    const double p10 = MeasureLatency(line, kTrivial, mExtent.requests, 1.17);
    for (Peer& peer : mPeers.All()) {
      if (!peer.runner) {
        continue;
      }
      Series times;
      for (int i = 0; i < mExtent.peerRequests; ++i) {
        times.push_back(MeasurePeer(peer));
      }
      mReport.AddValues(line, "us", peer.name, times);
      mReport.AddRatio(line + ", p10", peer.name, peer.bound, p10 / Percentile(times, 10));
    }
  }

  void MeasureRates(int callers) {
    const std::string line = "trivial commands, " + std::to_string(callers) + " at once";
    const double helper = MeasureRate(callers, mExtent.rateTime, [] { CallHelper(kTrivial); });
    const double floor = MeasureRate(callers, mExtent.rateTime, [] { CallFloor(kTrivial); });
    mReport.AddValues(line, "a second", "helper", {helper});
    mReport.AddValues(line, "a second", "floor", {floor});
    mReport.AddRatio(line, "floor", 1.2, floor / helper);
  }

  void MeasureSystemCalls(const std::string& kind, const Request& request, double bound) {
    const std::string line = "system calls of a " + kind + " command";
    try {
      double sum = 0;
      std::string names;
      for (const auto& [name, count] : CountSystemCalls(
               mContenders->daemon.Pid(), mExtent.tracedRequests, [&] { CallHelper(request); })) {
        sum += count;
        names += " " + name + " " + std::to_string(count).substr(0, 4);
      }
      mReport.AddFigure(line, sum, bound, "");
      mReport.AddNote(line + ":" + names);
    } catch (const std::exception& error) {
      mReport.AddNote(line + ": not counted: " + error.what());
    }
  }

  // Soon after a start: what a process does later leaves its mark. And after several, since which
  // pages of its libraries the kernel maps beside those that are needed depends on where they lie.
  void MeasureMemory() {
    const bool hasPeer = fs::exists(kIdlePeerPath);
    if (!hasPeer) {
      mReport.AddNote("rtkit-daemon: not measured: not installed");
    }
    Series all;
    for (int i = 0; i < mExtent.starts; ++i) {
      const Contenders contenders;
      const std::string cxxName = "brimlet.FloorCxx";
      const Process cxxFloor({kFloorCxxPath, cxxName});
      WaitForName(cxxName, cxxFloor.Pid());
      for (const Request* const request : {&kTrivial, &kRefused}) {
        CallHelper(*request);
        CallFloor(*request);
        CallFloor(*request, cxxName);
      }
      const double pss = Pss(contenders.daemon.Pid());
      all.push_back(pss);
      mReport.AddRatio("idle: PSS", "floor", 1.1, pss / Pss(contenders.floor.Pid()));
      mReport.AddRatio("idle: PSS, floor with the C++ library", "floor", kNoBound,
                       pss / Pss(cxxFloor.Pid()));
      if (hasPeer) {
        MeasurePeerMemory(pss);
      }
    }
    mReport.AddFigure("idle: PSS of the daemon", Percentile(all, 50), kNoBound, "KiB");
  }

  void MeasurePeerMemory(double pss) {
    try {
      const Process peer({"sh", "-c", "exec " + kIdlePeerPath + " >/dev/null 2>&1"});
      WaitForName("org.freedesktop.RealtimeKit1", peer.Pid());
      mReport.AddRatio("idle: PSS", "rtkit-daemon", 1, pss / Pss(peer.Pid()));
    } catch (const std::exception& error) {
      mReport.AddNote(std::string("rtkit-daemon: not measured: ") + error.what());
    }
  }

  void MeasureWakeUps() {
    const double sleeps = Sleeps(mContenders->daemon.Pid());
    std::this_thread::sleep_for(mExtent.idleTime);
    const double seconds = std::chrono::duration<double>(mExtent.idleTime).count();
    mReport.AddFigure("idle: wake-ups", (Sleeps(mContenders->daemon.Pid()) - sleeps) / seconds, 0.5,
                      "a second");
  }

  void MeasureSize() {
    const std::string stripped = mFolder / "stripped";
    RunAndRead({"strip", "-o", stripped, BrimletTest::kDaemonPath});
    mReport.AddFigure("the daemon's file, stripped",
                      static_cast<double>(fs::file_size(stripped)) / 1024, 110, "KiB");
  }

  const Extent mExtent;
  const Request mOneByteLines;
  const BrimletTest::TempFolder mFolder;
  const std::unique_ptr<Process> mBus = StartBus(mFolder.Path());
  Peers mPeers{kTrivial.line, kTrivial.reply + "\n"};
  std::optional<Contenders> mContenders;
  Report mReport;
};

}  // namespace
}  // namespace BrimletBench

int main(int argc, char** argv) {
  using namespace BrimletBench;
  std::string mode = "quick";
  std::string json;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--run-peer" && i + 2 < argc) {
      return RunPeer(argv[i + 1], argv + i + 2);
    }
    if (argument == "--json" && i + 1 < argc) {
      json = argv[++i];
    } else {
      mode = argument;
    }
  }
  try {
    if (fs::read_symlink("/proc/self/exe") != kCorePath) {
      BrimletTest::BecomeCore(argv,
                              {{BRIMLET_FLOOR, kFloorPath}, {BRIMLET_FLOOR_CXX, kFloorCxxPath}});
    }
    Pin({0}, OneOf(UsableProcessors()));
    EndToEnd endToEnd(ExtentOf(mode));
    const Report& report = endToEnd.Run();
    report.Print(std::cout);
    if (!json.empty()) {
      std::ofstream file(json);
      report.WriteJson(file);
      BrimletTest::Require(static_cast<bool>(file.flush()), "write " + json);
    }
  } catch (const std::exception& error) {
    std::cerr << "end_to_end: " << error.what() << '\n';
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
