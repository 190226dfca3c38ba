// The policy's grammar once more, as patterns: an oracle that shares nothing with the policy.
#pragma once

#include <map>
#include <regex>
#include <string>

namespace BrimletTest {

// What follows an option word, and an example of it. Every word ends in a blank.
struct Form {
  std::string pattern, example;

  Form operator+(const Form& end) const { return {pattern + end.pattern, example + end.example}; }
};

inline std::map<std::string, Form> MakeGrammar() {
  const std::string byte = "(25[0-5]|2[0-4]\\d|1\\d\\d|[1-9]?\\d)", hex = "[A-Fa-f\\d]{2}";
  // Numbers as std::stoi reads them.
  const std::string start = "[\t-\r]*(-0+|[+]?0*(", end = "))([^\\d ][^ ]*)? ";
  const std::string below65536 =
      "\\d{1,4}|[1-5]\\d{4}|6[0-4]\\d{3}|65[0-4]\\d\\d|655[0-2]\\d|6553[0-5]";
  const std::string from36to177 = "3[6-9]|[4-9]\\d|1[0-6]\\d|17[0-7]";
  const Form none, any{"[^ ]* ", "any "}, rest{"([^ ]* )?", "any "}, word{"\\w+ ", "w_1 "},
      key{"\\w{16} \\w{64} ", std::string(16, 'k') + " " + std::string(64, 'k') + " "},
      pid{"\\d{1,12} ", "1234 "}, port{start + below65536 + end, "8080 "},
      index{start + "\\d{1,2}" + end, "99 "}, orvix0{"orvix0 ", "orvix0 "},
      ip{"(?!0)(" + byte + "\\.){3}" + byte + " ", "192.168.1.1 "},
      mac{"(?!00(:00){5} |FF(:FF){5} |ff(:ff){5} )(" + hex + ":){5}" + hex + " ",
          "AA:BB:cc:dd:ee:0f "},
      channel{"(?![\t-\r]*-)" + start + from36to177 + end, "36 "};
  // clang-format off
  return {{"--exit", none}, {"--add", none}, {"-a", none}, {"--delete", none}, {"-d", none},
          {"--search", none}, {"-s", none}, {"--nopluginInput", none}, {"--nopluginNull", none},
          {"--nohidden", word}, {"--btup", word}, {"--delVirt", word}, {"--unmanaged", mac},
          {"--kill", pid}, {"--randomPort", port}, {"--randomPortDel", port}, {"--unblock", index},
          {"--setIP", orvix0 + ip}, {"--virt", word + orvix0}, {"--disconbt", word + mac},
          {"--hostapd", channel + key + any + rest}, {"--reload", channel + key + any + pid}};
  // clang-format on
}

// For lines of some hundred bytes: std::regex recurses once per byte.
inline bool IsAllowed(const std::string& line) {
  static const auto rules = [] {
    std::map<std::string, std::regex> compiled;
    for (const auto& [option, form] : MakeGrammar()) compiled.emplace(option, form.pattern);
    return compiled;
  }();
  static const std::regex form("([^ ]*) ([^ ]*) ([^]*)");
  const std::string ended = line + (line.ends_with(' ') ? "" : " ");
  std::smatch words;
  if (!std::regex_match(ended, words, form)) return false;
  const auto rule = rules.find(words[2]);
  return rule != rules.end() && (words[2] != "--exit" || words[1] == "brimletd") &&
         std::regex_match(words.str(3), rule->second);
}

}  // namespace BrimletTest
