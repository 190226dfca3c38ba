#include "common/ErrorCode.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <string_view>

namespace Velmar::ErrorCode {
namespace {

struct Entry {
  std::int32_t code;
  std::string_view message;
};

// In the order of the codes, for the search. Misspelt messages stay: people search logs for them.
// clang-format off
constexpr Entry kMessages[] = {
    {0, "Action success"}, {1, "Action failed"}, {2, "Null pointer"}, {3, "Object not found"},
    {4, "No permissions"}, {5, "Acquire lock failed"}, {6, "Dynamic allocation the memory failed"},
    {7, "Object exists"}, {8, "Invalid input parameter"}, {9, "execute command failed"},
    {10, "String format error"}, {11, "Operation is not allowed"},
    {12, "Exit decode or scale process"}, {13, "Memset failed"}, {14, "Memcpy failed"},
    {15, "device not support"}, {16, "json parse failed"}, {17, "json build failed"},
    {18, "json get item failed"}, {19, "get random seed failed"},
    {100, "Open file failed"}, {101, "Read file failed"}, {102, "Invalid file path"},
    {103, "Invalid file name"}, {104, "File not exist"}, {105, "Write file failed"},
    {106, "Save file failed"},
    {200, "Decode failed"}, {201, "Crop frame failed"}, {202, "Transmiss IDR frame failed"},
    {203, "Scale size error"},
    {300, "Server is first runing"}, {301, "Server has been runing"},
    {302, "Pelodan event send failed"},
    {400, "Create Ap failed"}, {401, "Stop Ap failed"}, {402, "Set AP list clients failed"},
    {403, "Scan iw info interface failed"}, {404, "Iptables add failed"},
    {405, "Iptables delete failed"}, {406, "get 5g channel number failed"},
    {407, "Check wifi compatibility failed"}, {408, "Create virtual interface failed"},
    {409, "Delete virtual interface failed"}, {410, "Write udev rules failed"},
    {411, "Get wifi mac failed"}, {412, "no available iw interface"},
    {413, "hostapd reload config"}, {414, "set IP failed"}, {415, "wifi is disconnected"},
    {416, "failed to create psk"}, {417, "failed to run hostapd"},
    {418, "failed to init wifi info"}, {419, "wifi is not enabled"},
    {420, "Environment check failed"}, {421, "wifi is not responsed"},
    {500, "Failed to init authenhandle"}, {501, "Failed to dercypt the port"},
    {502, "Charset convert failed"}, {503, "QDLP decrypt failed"},
    {504, "Failed to write authent info"}, {505, "Failed to get authent info"},
    {506, "QDLP encrypt failed"}, {507, "Authent session key failed"},
    {602, "TCP not config "}, {603, "TCP send date before connection had been done"},
    {604, "TCP receive date before connection had been done"}, {605, "TCP receive data failed"},
    {606, "TCP send data failed"}, {607, "TCP bind failed"}, {608, "TCP create socket failed"},
    {609, "TCP connect server failed"}, {610, "TCP close socket failed"},
    {611, "TCP receive null buffer"}, {612, "TCP invalid args"}, {613, "TCP listen failed"},
    {614, "TCP set socket option failed"}, {615, "TCP android offline request"},
    {616, "TCP get socket name failed"}, {617, "TCP receive data again"},
    {618, "TCP version not the same"}, {619, "TCP session authent successfully"},
    {620, "TCP heartbeat timeout"},
    {700, "BLUETOOTH not config"}, {701, "BLUETOOTH create socket failed"},
    {702, "BLUETOOTH set socket option failed"}, {703, "BLUETOOTH bind failed"},
    {704, "BLUETOOTH listen failed"}, {705, "BLUETOOTH set timeout failed"},
    {706, "BLUETOOTH accept failed"}, {707, "BLUETOOTH send data failed"},
    {708, "BLUETOOTH connect server failed"}, {709, "BLUETOOTH close socket failed"},
    {710, "BLUETOOTH start failed"}, {711, "BLUETOOTH get mac failed"},
    {712, "BLUETOOTH get name failed"}, {713, "BLUETOOTH set config failed"},
    {714, "BLUETOOTH connect is waitting"}, {715, "BLUETOOTH epoll_ctl failed"},
    {716, "BLUETOOTH scan connected list failed"}, {717, "BLUETOOTH get client mac failed"},
    {718, "BLUETOOTH disconnect bluetooth device failed"}, {719, "BLUETOOTH no bluetooth device"},
    {720, "BLUETOOTH not response"},
    {800, "Failed to get authfile"}, {801, "Failed to get deviceid"},
    {802, "Failed to write authfile"}, {803, "Failed to get authfilesize"},
    {804, "Failed to do authenthandshake"}, {805, "Failed to init authhandle"},
    {901, "PC memory is not enough"}, {902, "Peer memory is not enough"},
    {903, "File check failed"}, {904, "Peer file check failed"}, {905, "File is transferring"},
    {906, "File transfer failed"}, {907, "File oversize"},
    {908, "Folder is not support to transfer"}, {909, "Null file is not support to transfer"},
    {910, "Peer file is abnormal"}, {911, "Time out when transfer"},
    {912, "File don't have read permission"}, {913, "Command socket error"},
    {914, "Peer need file permission to operate"},
};
// clang-format on

static_assert(std::ranges::adjacent_find(kMessages, std::ranges::greater_equal{}, &Entry::code) ==
              std::ranges::end(kMessages));

}  // namespace

ErrorInfo& ErrorInfo::Instance() {
  static ErrorInfo instance;
  return instance;
}

std::string ErrorInfo::GetErrorInfo(int code) const {
  const auto* const entry = std::ranges::lower_bound(kMessages, code, {}, &Entry::code);
  const bool isKnown = entry != std::ranges::end(kMessages) && entry->code == code;
  return std::string(isKnown ? entry->message : "Unknown error");
}

std::string GetLogText(int code) {
  return code < 0 ? "ACTION_FAILED" : ErrorInfo::Instance().GetErrorInfo(code);
}

}  // namespace Velmar::ErrorCode
