// The least that a privileged helper on the bus can be: a service that runs each line it is sent
// through the shell and replies the output, or replies a fixed text.
//
// It asks nobody who the caller is, judges no line, logs nothing, bounds nothing but its buffer,
// and looks at no parent.
//
//   end_to_end_floor NAME
#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdio>

namespace {

char output[102400];

int Refuse(sd_bus_message* call, void* /*userdata*/, sd_bus_error* /*error*/) {
  return sd_bus_reply_method_return(call, "s", "ExecutePopen failed!");
}

int Run(sd_bus_message* call, void* /*userdata*/, sd_bus_error* /*error*/) {
  const char* line = nullptr;
  const int r = sd_bus_message_read(call, "s", &line);
  if (r < 0) {
    return r;
  }
  std::FILE* const pipe = popen(line, "re");
  if (pipe == nullptr) {
    return -1;
  }
  const std::size_t length = std::fread(output, 1, sizeof output - 1, pipe);
  output[length > 0 ? length - 1 : 0] = '\0';
  pclose(pipe);
  return sd_bus_reply_method_return(call, "s", output);
}

const sd_bus_vtable methods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Refuse", "s", "s", Refuse, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Run", "s", "s", Run, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

}  // namespace

int main(int argc, char** argv) {
  sd_bus* bus = nullptr;
  if (argc != 2 || sd_bus_open_system(&bus) < 0 ||
      sd_bus_add_object_vtable(bus, nullptr, "/floor", "brimlet.Floor", methods, nullptr) < 0 ||
      sd_bus_request_name(bus, argv[1], 0) < 0) {
    return 1;
  }
  for (;;) {
    const int r = sd_bus_process(bus, nullptr);
    if (r < 0 || (r == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)) {
      return 1;
    }
  }
}
