// Status codes that the application's programs share, and their messages: 0 is success, a positive
// number names a failure. Some operations return a code negated, or plain -1; their headers say so.
//
//   LogError(kModule, kFile, "cannot start, error code: %s", GetLogText(code).c_str());
//
// The codes are grouped by hundreds; each group is a namespace of constants.
#pragma once

#include <cstdint>
#include <string>

namespace Velmar::ErrorCode {

namespace CommonStatus {
inline constexpr std::int32_t ACTION_SUCCESS = 0;
inline constexpr std::int32_t ACTION_FAILED = 1;
inline constexpr std::int32_t POINTER_IS_NULL = 2;
inline constexpr std::int32_t OBJECT_NOT_FOUND = 3;
inline constexpr std::int32_t NO_PERMISSIONS = 4;
inline constexpr std::int32_t ACQUIRE_LOCK_FAILED = 5;
inline constexpr std::int32_t ALLOCATE_MEMORY_FAILED = 6;
inline constexpr std::int32_t OBJECT_EXISTS = 7;
inline constexpr std::int32_t INVALID_PARAMETER = 8;
inline constexpr std::int32_t EXECUTE_COMMAND_FAILED = 9;
inline constexpr std::int32_t STRING_FORMAT_ERROR = 10;
inline constexpr std::int32_t OPERATION_NOT_ALLOWED = 11;
inline constexpr std::int32_t EXIT_DECODE_OR_SCALE = 12;
inline constexpr std::int32_t MEMSET_FAILED = 13;
inline constexpr std::int32_t MEMCPY_FAILED = 14;
inline constexpr std::int32_t DEVICE_NOT_SUPPORTED = 15;
inline constexpr std::int32_t JSON_PARSE_FAILED = 16;
inline constexpr std::int32_t JSON_BUILD_FAILED = 17;
inline constexpr std::int32_t JSON_GET_ITEM_FAILED = 18;
inline constexpr std::int32_t GET_RANDOM_SEEDS_FAILED = 19;
}  // namespace CommonStatus

namespace FileOperStatus {
inline constexpr std::int32_t OPEN_FILE_FAILED = 100;
inline constexpr std::int32_t READ_FILE_FAILED = 101;
inline constexpr std::int32_t INVALID_FILE_PATH = 102;
inline constexpr std::int32_t INVALID_FILE_NAME = 103;
inline constexpr std::int32_t FILE_NOT_EXIST = 104;
inline constexpr std::int32_t WRITE_FILE_FAILED = 105;
inline constexpr std::int32_t SAVE_FILE_FAILED = 106;
}  // namespace FileOperStatus

// Directory operations share the numbers, and with them the messages, of the first file operations.
namespace DirOperStatus {
inline constexpr std::int32_t CREATE_DIR_FAILED = 100;
inline constexpr std::int32_t DIR_NOT_EXIST = 101;
inline constexpr std::int32_t REMOVE_DIR_FAILED = 102;
}  // namespace DirOperStatus

// Decoding and scaling of frames.
namespace DecodeStatus {
inline constexpr std::int32_t DECODE_FAILED = 200;
inline constexpr std::int32_t CROP_FRAME_FAILED = 201;
inline constexpr std::int32_t TRANSMIT_IDR_FRAME_FAILED = 202;
inline constexpr std::int32_t SCALE_SIZE_ERROR = 203;
}  // namespace DecodeStatus

namespace ServerStatus {
inline constexpr std::int32_t SERVER_FIRST_RUNNING = 300;
inline constexpr std::int32_t SERVER_ALREADY_RUNNING = 301;
}  // namespace ServerStatus

// Projection events.
namespace EventStatus {
inline constexpr std::int32_t SEND_EVENT_FAILED = 302;
}  // namespace EventStatus

// Wireless access point and interfaces.
namespace WifiStatus {
inline constexpr std::int32_t CREATE_AP_FAILED = 400;
inline constexpr std::int32_t STOP_AP_FAILED = 401;
inline constexpr std::int32_t SET_AP_CLIENTS_FAILED = 402;
inline constexpr std::int32_t SCAN_INTERFACE_FAILED = 403;
inline constexpr std::int32_t ADD_IPTABLES_FAILED = 404;
inline constexpr std::int32_t DELETE_IPTABLES_FAILED = 405;
inline constexpr std::int32_t GET_5G_CHANNEL_FAILED = 406;
inline constexpr std::int32_t CHECK_COMPATIBILITY_FAILED = 407;
inline constexpr std::int32_t CREATE_VIRTUAL_INTERFACE_FAILED = 408;
inline constexpr std::int32_t DELETE_VIRTUAL_INTERFACE_FAILED = 409;
inline constexpr std::int32_t WRITE_UDEV_RULES_FAILED = 410;
inline constexpr std::int32_t GET_WIFI_MAC_FAILED = 411;
inline constexpr std::int32_t NO_AVAILABLE_INTERFACE = 412;
inline constexpr std::int32_t HOSTAPD_RELOAD_CONFIG = 413;
inline constexpr std::int32_t SET_IP_FAILED = 414;
inline constexpr std::int32_t WIFI_DISCONNECTED = 415;
inline constexpr std::int32_t CREATE_PSK_FAILED = 416;
inline constexpr std::int32_t RUN_HOSTAPD_FAILED = 417;
inline constexpr std::int32_t INIT_WIFI_INFO_FAILED = 418;
inline constexpr std::int32_t WIFI_NOT_ENABLED = 419;
inline constexpr std::int32_t CHECK_ENVIRONMENT_FAILED = 420;
inline constexpr std::int32_t WIFI_NOT_RESPONDING = 421;
}  // namespace WifiStatus

// Authentication of the peer device and encryption of what is exchanged with it.
namespace AuthenStatus {
inline constexpr std::int32_t INIT_AUTHEN_HANDLE_FAILED = 500;
inline constexpr std::int32_t DECRYPT_PORT_FAILED = 501;
inline constexpr std::int32_t CONVERT_CHARSET_FAILED = 502;
inline constexpr std::int32_t QDLP_DECRYPT_FAILED = 503;
inline constexpr std::int32_t WRITE_AUTHEN_INFO_FAILED = 504;
inline constexpr std::int32_t GET_AUTHEN_INFO_FAILED = 505;
inline constexpr std::int32_t QDLP_ENCRYPT_FAILED = 506;
inline constexpr std::int32_t AUTHEN_SESSION_KEY_FAILED = 507;
}  // namespace AuthenStatus

namespace TcpStatus {
inline constexpr std::int32_t NOT_CONFIGURED = 602;
inline constexpr std::int32_t SEND_BEFORE_CONNECTION = 603;
inline constexpr std::int32_t RECEIVE_BEFORE_CONNECTION = 604;
inline constexpr std::int32_t RECEIVE_DATA_FAILED = 605;
inline constexpr std::int32_t SEND_DATA_FAILED = 606;
inline constexpr std::int32_t BIND_FAILED = 607;
inline constexpr std::int32_t CREATE_SOCKET_FAILED = 608;
inline constexpr std::int32_t CONNECT_SERVER_FAILED = 609;
inline constexpr std::int32_t CLOSE_SOCKET_FAILED = 610;
inline constexpr std::int32_t RECEIVE_NULL_BUFFER = 611;
inline constexpr std::int32_t INVALID_ARGUMENTS = 612;
inline constexpr std::int32_t LISTEN_FAILED = 613;
inline constexpr std::int32_t SET_SOCKET_OPTION_FAILED = 614;
inline constexpr std::int32_t PEER_OFFLINE_REQUEST = 615;
inline constexpr std::int32_t GET_SOCKET_NAME_FAILED = 616;
inline constexpr std::int32_t RECEIVE_DATA_AGAIN = 617;
inline constexpr std::int32_t VERSION_NOT_SAME = 618;
inline constexpr std::int32_t SESSION_AUTHEN_SUCCESS = 619;
inline constexpr std::int32_t HEARTBEAT_TIMEOUT = 620;
}  // namespace TcpStatus

namespace BluetoothStatus {
inline constexpr std::int32_t NOT_CONFIGURED = 700;
inline constexpr std::int32_t CREATE_SOCKET_FAILED = 701;
inline constexpr std::int32_t SET_SOCKET_OPTION_FAILED = 702;
inline constexpr std::int32_t BIND_FAILED = 703;
inline constexpr std::int32_t LISTEN_FAILED = 704;
inline constexpr std::int32_t SET_TIMEOUT_FAILED = 705;
inline constexpr std::int32_t ACCEPT_FAILED = 706;
inline constexpr std::int32_t SEND_DATA_FAILED = 707;
inline constexpr std::int32_t CONNECT_SERVER_FAILED = 708;
inline constexpr std::int32_t CLOSE_SOCKET_FAILED = 709;
inline constexpr std::int32_t START_FAILED = 710;
inline constexpr std::int32_t GET_MAC_FAILED = 711;
inline constexpr std::int32_t GET_NAME_FAILED = 712;
inline constexpr std::int32_t SET_CONFIG_FAILED = 713;
inline constexpr std::int32_t CONNECT_IS_WAITING = 714;
inline constexpr std::int32_t EPOLL_CTL_FAILED = 715;
inline constexpr std::int32_t SCAN_CONNECTED_LIST_FAILED = 716;
inline constexpr std::int32_t GET_CLIENT_MAC_FAILED = 717;
inline constexpr std::int32_t DISCONNECT_DEVICE_FAILED = 718;
inline constexpr std::int32_t NO_DEVICE = 719;
inline constexpr std::int32_t NOT_RESPONDING = 720;
}  // namespace BluetoothStatus

// The file that holds the authentication of known devices.
namespace AuthFileStatus {
inline constexpr std::int32_t GET_AUTH_FILE_FAILED = 800;
inline constexpr std::int32_t GET_DEVICE_ID_FAILED = 801;
inline constexpr std::int32_t WRITE_AUTH_FILE_FAILED = 802;
inline constexpr std::int32_t GET_AUTH_FILE_SIZE_FAILED = 803;
inline constexpr std::int32_t AUTHEN_HANDSHAKE_FAILED = 804;
inline constexpr std::int32_t INIT_AUTH_HANDLE_FAILED = 805;
}  // namespace AuthFileStatus

namespace FileTransStatus {
inline constexpr std::int32_t PC_MEMORY_NOT_ENOUGH = 901;
inline constexpr std::int32_t PEER_MEMORY_NOT_ENOUGH = 902;
inline constexpr std::int32_t CHECK_FILE_FAILED = 903;
inline constexpr std::int32_t PEER_CHECK_FILE_FAILED = 904;
inline constexpr std::int32_t FILE_IS_TRANSFERRING = 905;
inline constexpr std::int32_t TRANSFER_FILE_FAILED = 906;
inline constexpr std::int32_t FILE_OVERSIZE = 907;
inline constexpr std::int32_t FOLDER_NOT_SUPPORTED = 908;
inline constexpr std::int32_t NULL_FILE_NOT_SUPPORTED = 909;
inline constexpr std::int32_t PEER_FILE_ABNORMAL = 910;
inline constexpr std::int32_t TRANSFER_TIMEOUT = 911;
inline constexpr std::int32_t NO_READ_PERMISSION = 912;
inline constexpr std::int32_t COMMAND_SOCKET_ERROR = 913;
inline constexpr std::int32_t PEER_NEEDS_FILE_PERMISSION = 914;
}  // namespace FileTransStatus

// The messages of the codes. Several threads may ask for them: they never change.
class ErrorInfo {
 public:
  // The one object of the process, made on first use.
  static ErrorInfo& Instance();

  // Returns the message of a code, "Unknown error" for every other number. 100 to 102 give the
  // messages of the file operations.
  std::string GetErrorInfo(int code) const;
};

// Returns what a log line tells of a code: "ACTION_FAILED" for a negative one, its message for
// every other. Several threads may call it.
std::string GetLogText(int code);

}  // namespace Velmar::ErrorCode
