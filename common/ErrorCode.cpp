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

// In the order of the codes, for the search. Misspelt messages stay: they are searched for in logs.
constexpr Entry kMessages[] = {
    {CommonStatus::ACTION_SUCCESS, "Action success"},
    {CommonStatus::ACTION_FAILED, "Action failed"},
    {CommonStatus::POINTER_IS_NULL, "Null pointer"},
    {CommonStatus::OBJECT_NOT_FOUND, "Object not found"},
    {CommonStatus::NO_PERMISSIONS, "No permissions"},
    {CommonStatus::ACQUIRE_LOCK_FAILED, "Acquire lock failed"},
    {CommonStatus::ALLOCATE_MEMORY_FAILED, "Dynamic allocation the memory failed"},
    {CommonStatus::OBJECT_EXISTS, "Object exists"},
    {CommonStatus::INVALID_PARAMETER, "Invalid input parameter"},
    {CommonStatus::EXECUTE_COMMAND_FAILED, "execute command failed"},
    {CommonStatus::STRING_FORMAT_ERROR, "String format error"},
    {CommonStatus::OPERATION_NOT_ALLOWED, "Operation is not allowed"},
    {CommonStatus::EXIT_DECODE_OR_SCALE, "Exit decode or scale process"},
    {CommonStatus::MEMSET_FAILED, "Memset failed"},
    {CommonStatus::MEMCPY_FAILED, "Memcpy failed"},
    {CommonStatus::DEVICE_NOT_SUPPORTED, "device not support"},
    {CommonStatus::JSON_PARSE_FAILED, "json parse failed"},
    {CommonStatus::JSON_BUILD_FAILED, "json build failed"},
    {CommonStatus::JSON_GET_ITEM_FAILED, "json get item failed"},
    {CommonStatus::GET_RANDOM_SEEDS_FAILED, "get random seed failed"},
    {FileOperStatus::OPEN_FILE_FAILED, "Open file failed"},
    {FileOperStatus::READ_FILE_FAILED, "Read file failed"},
    {FileOperStatus::INVALID_FILE_PATH, "Invalid file path"},
    {FileOperStatus::INVALID_FILE_NAME, "Invalid file name"},
    {FileOperStatus::FILE_NOT_EXIST, "File not exist"},
    {FileOperStatus::WRITE_FILE_FAILED, "Write file failed"},
    {FileOperStatus::SAVE_FILE_FAILED, "Save file failed"},
    {DecodeStatus::DECODE_FAILED, "Decode failed"},
    {DecodeStatus::CROP_FRAME_FAILED, "Crop frame failed"},
    {DecodeStatus::TRANSMIT_IDR_FRAME_FAILED, "Transmiss IDR frame failed"},
    {DecodeStatus::SCALE_SIZE_ERROR, "Scale size error"},
    {ServerStatus::SERVER_FIRST_RUNNING, "Server is first runing"},
    {ServerStatus::SERVER_ALREADY_RUNNING, "Server has been runing"},
    {EventStatus::SEND_EVENT_FAILED, "Pelodan event send failed"},
    {WifiStatus::CREATE_AP_FAILED, "Create Ap failed"},
    {WifiStatus::STOP_AP_FAILED, "Stop Ap failed"},
    {WifiStatus::SET_AP_CLIENTS_FAILED, "Set AP list clients failed"},
    {WifiStatus::SCAN_INTERFACE_FAILED, "Scan iw info interface failed"},
    {WifiStatus::ADD_IPTABLES_FAILED, "Iptables add failed"},
    {WifiStatus::DELETE_IPTABLES_FAILED, "Iptables delete failed"},
    {WifiStatus::GET_5G_CHANNEL_FAILED, "get 5g channel number failed"},
    {WifiStatus::CHECK_COMPATIBILITY_FAILED, "Check wifi compatibility failed"},
    {WifiStatus::CREATE_VIRTUAL_INTERFACE_FAILED, "Create virtual interface failed"},
    {WifiStatus::DELETE_VIRTUAL_INTERFACE_FAILED, "Delete virtual interface failed"},
    {WifiStatus::WRITE_UDEV_RULES_FAILED, "Write udev rules failed"},
    {WifiStatus::GET_WIFI_MAC_FAILED, "Get wifi mac failed"},
    {WifiStatus::NO_AVAILABLE_INTERFACE, "no available iw interface"},
    {WifiStatus::HOSTAPD_RELOAD_CONFIG, "hostapd reload config"},
    {WifiStatus::SET_IP_FAILED, "set IP failed"},
    {WifiStatus::WIFI_DISCONNECTED, "wifi is disconnected"},
    {WifiStatus::CREATE_PSK_FAILED, "failed to create psk"},
    {WifiStatus::RUN_HOSTAPD_FAILED, "failed to run hostapd"},
    {WifiStatus::INIT_WIFI_INFO_FAILED, "failed to init wifi info"},
    {WifiStatus::WIFI_NOT_ENABLED, "wifi is not enabled"},
    {WifiStatus::CHECK_ENVIRONMENT_FAILED, "Environment check failed"},
    {WifiStatus::WIFI_NOT_RESPONDING, "wifi is not responsed"},
    {AuthenStatus::INIT_AUTHEN_HANDLE_FAILED, "Failed to init authenhandle"},
    {AuthenStatus::DECRYPT_PORT_FAILED, "Failed to dercypt the port"},
    {AuthenStatus::CONVERT_CHARSET_FAILED, "Charset convert failed"},
    {AuthenStatus::QDLP_DECRYPT_FAILED, "QDLP decrypt failed"},
    {AuthenStatus::WRITE_AUTHEN_INFO_FAILED, "Failed to write authent info"},
    {AuthenStatus::GET_AUTHEN_INFO_FAILED, "Failed to get authent info"},
    {AuthenStatus::QDLP_ENCRYPT_FAILED, "QDLP encrypt failed"},
    {AuthenStatus::AUTHEN_SESSION_KEY_FAILED, "Authent session key failed"},
    {TcpStatus::NOT_CONFIGURED, "TCP not config "},
    {TcpStatus::SEND_BEFORE_CONNECTION, "TCP send date before connection had been done"},
    {TcpStatus::RECEIVE_BEFORE_CONNECTION, "TCP receive date before connection had been done"},
    {TcpStatus::RECEIVE_DATA_FAILED, "TCP receive data failed"},
    {TcpStatus::SEND_DATA_FAILED, "TCP send data failed"},
    {TcpStatus::BIND_FAILED, "TCP bind failed"},
    {TcpStatus::CREATE_SOCKET_FAILED, "TCP create socket failed"},
    {TcpStatus::CONNECT_SERVER_FAILED, "TCP connect server failed"},
    {TcpStatus::CLOSE_SOCKET_FAILED, "TCP close socket failed"},
    {TcpStatus::RECEIVE_NULL_BUFFER, "TCP receive null buffer"},
    {TcpStatus::INVALID_ARGUMENTS, "TCP invalid args"},
    {TcpStatus::LISTEN_FAILED, "TCP listen failed"},
    {TcpStatus::SET_SOCKET_OPTION_FAILED, "TCP set socket option failed"},
    {TcpStatus::PEER_OFFLINE_REQUEST, "TCP android offline request"},
    {TcpStatus::GET_SOCKET_NAME_FAILED, "TCP get socket name failed"},
    {TcpStatus::RECEIVE_DATA_AGAIN, "TCP receive data again"},
    {TcpStatus::VERSION_NOT_SAME, "TCP version not the same"},
    {TcpStatus::SESSION_AUTHEN_SUCCESS, "TCP session authent successfully"},
    {TcpStatus::HEARTBEAT_TIMEOUT, "TCP heartbeat timeout"},
    {BluetoothStatus::NOT_CONFIGURED, "BLUETOOTH not config"},
    {BluetoothStatus::CREATE_SOCKET_FAILED, "BLUETOOTH create socket failed"},
    {BluetoothStatus::SET_SOCKET_OPTION_FAILED, "BLUETOOTH set socket option failed"},
    {BluetoothStatus::BIND_FAILED, "BLUETOOTH bind failed"},
    {BluetoothStatus::LISTEN_FAILED, "BLUETOOTH listen failed"},
    {BluetoothStatus::SET_TIMEOUT_FAILED, "BLUETOOTH set timeout failed"},
    {BluetoothStatus::ACCEPT_FAILED, "BLUETOOTH accept failed"},
    {BluetoothStatus::SEND_DATA_FAILED, "BLUETOOTH send data failed"},
    {BluetoothStatus::CONNECT_SERVER_FAILED, "BLUETOOTH connect server failed"},
    {BluetoothStatus::CLOSE_SOCKET_FAILED, "BLUETOOTH close socket failed"},
    {BluetoothStatus::START_FAILED, "BLUETOOTH start failed"},
    {BluetoothStatus::GET_MAC_FAILED, "BLUETOOTH get mac failed"},
    {BluetoothStatus::GET_NAME_FAILED, "BLUETOOTH get name failed"},
    {BluetoothStatus::SET_CONFIG_FAILED, "BLUETOOTH set config failed"},
    {BluetoothStatus::CONNECT_IS_WAITING, "BLUETOOTH connect is waitting"},
    {BluetoothStatus::EPOLL_CTL_FAILED, "BLUETOOTH epoll_ctl failed"},
    {BluetoothStatus::SCAN_CONNECTED_LIST_FAILED, "BLUETOOTH scan connected list failed"},
    {BluetoothStatus::GET_CLIENT_MAC_FAILED, "BLUETOOTH get client mac failed"},
    {BluetoothStatus::DISCONNECT_DEVICE_FAILED, "BLUETOOTH disconnect bluetooth device failed"},
    {BluetoothStatus::NO_DEVICE, "BLUETOOTH no bluetooth device"},
    {BluetoothStatus::NOT_RESPONDING, "BLUETOOTH not response"},
    {AuthFileStatus::GET_AUTH_FILE_FAILED, "Failed to get authfile"},
    {AuthFileStatus::GET_DEVICE_ID_FAILED, "Failed to get deviceid"},
    {AuthFileStatus::WRITE_AUTH_FILE_FAILED, "Failed to write authfile"},
    {AuthFileStatus::GET_AUTH_FILE_SIZE_FAILED, "Failed to get authfilesize"},
    {AuthFileStatus::AUTHEN_HANDSHAKE_FAILED, "Failed to do authenthandshake"},
    {AuthFileStatus::INIT_AUTH_HANDLE_FAILED, "Failed to init authhandle"},
    {FileTransStatus::PC_MEMORY_NOT_ENOUGH, "PC memory is not enough"},
    {FileTransStatus::PEER_MEMORY_NOT_ENOUGH, "Peer memory is not enough"},
    {FileTransStatus::CHECK_FILE_FAILED, "File check failed"},
    {FileTransStatus::PEER_CHECK_FILE_FAILED, "Peer file check failed"},
    {FileTransStatus::FILE_IS_TRANSFERRING, "File is transferring"},
    {FileTransStatus::TRANSFER_FILE_FAILED, "File transfer failed"},
    {FileTransStatus::FILE_OVERSIZE, "File oversize"},
    {FileTransStatus::FOLDER_NOT_SUPPORTED, "Folder is not support to transfer"},
    {FileTransStatus::NULL_FILE_NOT_SUPPORTED, "Null file is not support to transfer"},
    {FileTransStatus::PEER_FILE_ABNORMAL, "Peer file is abnormal"},
    {FileTransStatus::TRANSFER_TIMEOUT, "Time out when transfer"},
    {FileTransStatus::NO_READ_PERMISSION, "File don't have read permission"},
    {FileTransStatus::COMMAND_SOCKET_ERROR, "Command socket error"},
    {FileTransStatus::PEER_NEEDS_FILE_PERMISSION, "Peer need file permission to operate"},
};

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
