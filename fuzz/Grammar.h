// The policy's grammar once more, as patterns: an oracle that shares nothing with the policy.
#pragma once

#include <map>
#include <regex>
#include <string>

namespace BrimletTest {

// What follows each group of option words. Every word ends in a blank.
inline std::map<std::string, std::string> MakeGrammar() {
  const std::string any = "[^ ]* ", word = "\\w+ ", key = "\\w{16} \\w{64} ", pid = "\\d{1,12} ";
  const std::string byte = "(25[0-5]|2[0-4]\\d|1\\d\\d|[1-9]?\\d)", hex = "[A-Fa-f\\d]{2}";
  const std::string ip = "(?!0)(" + byte + "\\.){3}" + byte + " ";
  const std::string mac = "(?!00(:00){5} |FF(:FF){5} |ff(:ff){5} )(" + hex + ":){5}" + hex + " ";
  // Numbers as std::stoi reads them.
  const std::string start = "[\t-\r]*(-0+|[+]?0*(", end = "))([^\\d ][^ ]*)? ";
  const std::string channel = "(?![\t-\r]*-)" + start + "3[6-9]|[4-9]\\d|1[0-6]\\d|17[0-7]" + end;
  const std::string below65536 =
      "\\d{1,4}|[1-5]\\d{4}|6[0-4]\\d{3}|65[0-4]\\d\\d|655[0-2]\\d|6553[0-5]";
  return {{"--(exit|add|delete|search|nopluginInput|nopluginNull)|-a|-d|-s", ""},
          {"--(nohidden|btup|delVirt)", word},
          {"--unmanaged", mac},
          {"--kill", pid},
          {"--randomPort(Del)?", start + below65536 + end},
          {"--unblock", start + "\\d{1,2}" + end},
          {"--setIP", "orvix0 " + ip},
          {"--virt", word + "orvix0 "},
          {"--disconbt", word + mac},
          {"--hostapd", channel + key + any + "(" + any + ")?"},
          {"--reload", channel + key + any + pid}};
}

// For lines of some hundred bytes: std::regex recurses once per byte.
inline bool IsAllowed(const std::string& line) {
  static const auto compiled = [] {
    std::vector<std::pair<std::regex, std::regex>> rules;
    for (const auto& [options, rest] : MakeGrammar()) rules.emplace_back(options, rest);
    return rules;
  }();
  static const std::regex form("([^ ]*) ([^ ]*) ([^]*)");
  const std::string ended = line + (line.ends_with(' ') ? "" : " ");
  std::smatch words;
  if (!std::regex_match(ended, words, form)) return false;
  for (const auto& [options, rest] : compiled) {
    if (!std::regex_match(words.str(2), options)) continue;
    const bool isFine = words[2] != "--exit" || words[1] == "brimletd";
    return isFine && std::regex_match(words.str(3), rest);
  }
  return false;
}

}  // namespace BrimletTest
