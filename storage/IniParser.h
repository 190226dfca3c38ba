// Configuration files in a small INI dialect, with their comments.
//
//   ;how the screen is sent
//   [net] ;wired
//   port=80 ;web
//
//   IniParser parser;
//   parser.GetInt("cast.conf", "net", "port");            // 80
//   parser.SetString("cast.conf", "net", "host", "tv");   // the file has the line "host=tv" now
//
// A file is made of lines, each ended by a line feed or by the end of the file. The first character
// of a line says what it is; nothing is trimmed, so that blanks, tabs and carriage returns belong
// to the texts beside them.
//   ";"   A comment line. It goes with the next header or key line; comment lines behind the last
//         of these are not kept.
//   "["   The header of a section. Its name goes to the first "]" or, without one, to the end of
//         the line. Its trailing comment begins at the line's first ";"; the rest behind the name
//         is not kept. A section that has two headers is one section.
//   else  A key line of the section in force ("default" before the first header). The key goes to
//         the first "=", the value from there to the next ";", where the trailing comment begins. A
//         line without "=" is its own key, and the text before its first ";" is the value. The
//         last of several lines with one key counts.
// A file that holds a key line with an empty key (so every file with an empty line), or one in a
// section with an empty name, is not read at all.
//
// A file is written without blank lines, its sections and the keys in them in no particular order,
// and without sections that have no key. Keys from before the first header come under "[default]".
//
// A comment is held under the names of its section and key (see IniFileData), so that one long name
// can take gigabytes of memory. A file is not read, either, when these names, counted once for each
// header, key line and comment, have more than 33554432 bytes (32 MiB) in all.
//
// The setters do not refuse what the dialect cannot keep; it reads differently once it is written:
//   - in a value, a ";" begins a comment, and what follows a line feed is a line of its own;
//   - in a key, "=" ends it, and a ";" or "[" at its beginning makes the line something else. A ";"
//     within it (also when it came from a file) begins a comment, so that key, value and comment
//     overlap: the value goes to the end of the line, and the comment grows with every writing;
//   - in a section's name, "]" ends it.
// A line feed in any of them can make a file that does not load again; so can a file that grows
// beyond the limit below.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>

namespace Velmar {

// The content of one file.
//
// Names are joined texts, so two lines can get the same name; the later line of the file wins then.
// The section "a1" with index 0 and the section "a" with index 10 are both "a10" in
// mLeadingComments: that comment is written before "a1", and before "a", too, when "a0" to "a9" are
// all there. In the same way the header of a section "a/b" and the key "b" of the section "a" share
// their comments.
struct IniFileData {
  // Value by section and key. Holds no section without a key.
  std::unordered_map<std::string, std::unordered_map<std::string, std::string>> mSections;

  // Trailing comment, from its ";" to the end of the line, by "section" or "section/key".
  std::unordered_map<std::string, std::string> mLineComments;

  // Comment line, line feed included, by "section" or "section/key" directly followed by the number
  // of the line among those before the header or key line: "net0", "net1", "net/port0".
  std::unordered_map<std::string, std::string> mLeadingComments;
};

// Reads, changes and writes files in the dialect above. Holds the content of every file that it has
// loaded, by path, as long as it lives; a path is a name and no more: two paths of one file are two
// contents. Getters and setters load the file first, and setters write it back at once: the file is
// the truth, and a load drops what was changed in memory only.
//
// Not thread-safe: an object belongs to one thread at a time, getters included. Several objects and
// processes that write one file are not coordinated: the last one to write wins.
//
// The object does not wipe what it has read, secrets included.
//
// Symbolic links are followed. No operation waits for another process, and none leaves a descriptor
// to a child process.
class IniParser {
 public:
  // Reads a file of at most 1048576 bytes (1 MiB) and holds its content in place of the one held
  // before. Returns 0. Returns -1, and leaves the held content as it was, for a file that is
  // missing, longer (also when it grows while it is read) or cannot be read to its end, for
  // anything but a regular file (a directory, a FIFO, a device), and for a content that is refused.
  // Logs nothing.
  int Load(const std::string& path);

  // Writes the held content of a path to its file, which is created if missing (mode 0666 less the
  // umask) and keeps its owner and mode otherwise. The text is made in memory and written in one
  // go. Logs the path as INFO and returns 0. Returns -1, without a line, when nothing is held: the
  // file is untouched, and the path is held as an empty content from now on. Returns -1 after the
  // line when the file cannot be opened, is no regular file or cannot be written; where the writing
  // itself failed (a full disk), the file holds a part of the text.
  int Save(const std::string& path);

  // Save() for every path held, whatever comes of it. Returns 0.
  int SaveAll();

  // True when the section of a held content cannot be used: the path is not held, its content is
  // empty, the section is not there, or it has no key. A WARNING tells which. Loads nothing.
  bool CheckSectionInvalid(const std::string& path, const std::string& section) const;

  // Loads a file and returns a copy of its content, or null when it cannot be loaded.
  std::unique_ptr<IniFileData> GetFileData(const std::string& path);

  // Load a file and return the value of a key. When there is none (the file cannot be loaded, the
  // section or the key is empty, or CheckSectionInvalid() is true, which logs) they return "", -1
  // and false. The same goes for a key that the section lacks, and the key is held with an empty
  // value then, which the next Save() or SaveAll() without a load before it writes.
  //
  // GetInt reads a decimal number after leading white space, sign included, up to the first
  // character that is not part of it. A number beyond 32 bits gives the nearest limit, a value that
  // begins with no number 0, an empty value -1. GetBool is true for exactly "true".
  std::string GetString(const std::string& path, const std::string& section,
                        const std::string& key);
  int GetInt(const std::string& path, const std::string& section, const std::string& key);
  bool GetBool(const std::string& path, const std::string& section, const std::string& key);

  // Load a file, set the value of a key, which is made if missing, as its section is, and save the
  // file. They do nothing more when the file cannot be loaded (a missing one is not created), the
  // section or the key is empty, or the value is null or an empty text. They do not tell whether
  // the file could be written. The value of SetBool is "true" or "false".
  void SetString(const std::string& path, const std::string& section, const std::string& key,
                 const std::string& value);
  void SetString(const std::string& path, const std::string& section, const std::string& key,
                 const char* value);
  void SetInt(const std::string& path, const std::string& section, const std::string& key,
              int value);
  void SetBool(const std::string& path, const std::string& section, const std::string& key,
               bool value);

 private:
  const std::string* FindValue(const std::string& path, const std::string& section,
                               const std::string& key);

  std::unordered_map<std::string, IniFileData> mFiles;
};

}  // namespace Velmar
