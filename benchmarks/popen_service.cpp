// What the daemon is measured against: a bus service that runs each line it is sent with popen and
// replies the output, or replies a fixed text without running anything. It asks nobody who the
// caller is, judges no line, logs nothing and looks at no parent.
#include <systemd/sd-bus.h>

#include <cstdio>
#include <string>

namespace {

int Run(sd_bus_message* call, void* /*userdata*/, sd_bus_error* /*error*/) {
  const char* line = nullptr;
  sd_bus_message_read(call, "s", &line);
  std::FILE* const pipe = popen(line, "re");
  static std::string output(102400, '\0');
  const std::size_t length = std::fread(output.data(), 1, output.size() - 1, pipe);
  output[length > 0 ? length - 1 : 0] = '\0';  // without the last line feed
  pclose(pipe);
  return sd_bus_reply_method_return(call, "s", output.c_str());
}

int Refuse(sd_bus_message* call, void* /*userdata*/, sd_bus_error* /*error*/) {
  return sd_bus_reply_method_return(call, "s", "ExecutePopen failed!");
}

const sd_bus_vtable methods[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Run", "s", "s", Run, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Refuse", "s", "s", Refuse, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};

}  // namespace

int main() {
  sd_bus* bus = nullptr;
  int r = sd_bus_open_system(&bus);
  r = r < 0 ? r : sd_bus_add_object_vtable(bus, nullptr, "/", "brimlet.Popen", methods, nullptr);
  r = r < 0 ? r : sd_bus_request_name(bus, "brimlet.Popen", 0);
  while (r >= 0) {
    r = sd_bus_process(bus, nullptr);
    r = r == 0 ? sd_bus_wait(bus, UINT64_MAX) : r;
  }
  return 1;
}
