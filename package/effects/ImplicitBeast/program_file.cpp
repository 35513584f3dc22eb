#include "program_file.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "formula/text.h"
#include "shared/whole_file.h"

namespace nimbo::implicit {
namespace {

using formula::SameIgnoringCase;

constexpr const char* kHeaders[kProgramCount] = {nullptr, "[texture]", "[normal]"};
constexpr const char* kVariablesHeader = "[variables]";

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
  return s;
}

// Splits at blanks and tabs.
std::vector<std::string> Words(std::string_view line) {
  std::vector<std::string> words;
  size_t at = 0;
  while (at < line.size()) {
    while (at < line.size() && (line[at] == ' ' || line[at] == '\t')) ++at;
    size_t end = at;
    while (end < line.size() && line[end] != ' ' && line[end] != '\t') ++end;
    if (end > at) words.emplace_back(line.substr(at, end - at));
    at = end;
  }
  return words;
}

bool ReadNumber(const std::string& word, float* value) {
  char* end = nullptr;
  const double v = std::strtod(word.c_str(), &end);
  if (end == word.c_str() || *end != '\0' || !std::isfinite(v) || std::fabs(v) > 1e30) return false;
  *value = float(v);
  return true;
}

std::string FormatNumber(float v) {
  char text[64];
  std::snprintf(text, sizeof text, "%.9g", double(v));
  return text;
}

void AppendLines(std::string& out, const std::string& text) {
  out += text;
  if (!text.empty() && text.back() != '\n') out += '\n';
}

}  // namespace

std::string FormatProgramFile(const ProgramSet& set) {
  std::string out;
  AppendLines(out, set.text[kFunProgram]);
  for (int32_t kind = kTextureProgram; kind < kProgramCount; ++kind) {
    if (Trim(set.text[size_t(kind)]).empty()) continue;
    out += std::string(kHeaders[kind]) + "\n";
    AppendLines(out, set.text[size_t(kind)]);
  }
  if (!set.vars.empty()) {
    out += std::string(kVariablesHeader) + "\n";
    for (const UserVariable& v : set.vars)
      out += v.name + " " + FormatNumber(v.minimum) + " " + FormatNumber(v.maximum) + " " + FormatNumber(v.position) +
             "\n";
  }
  return out;
}

std::string ParseProgramFile(std::string_view bytes, ProgramSet& set) {
  if (bytes.size() > kMaxProgramFileBytes) return "The file is too large for a program.";
  if (bytes.find('\0') != std::string_view::npos) return "The file is not a text file.";
  ProgramSet loaded;
  for (std::string& t : loaded.text) t.clear();
  int32_t section = kFunProgram;  // kProgramCount: the variables
  size_t at = 0, number = 0;
  while (at < bytes.size()) {
    size_t end = bytes.find('\n', at);
    const bool last = end == std::string_view::npos;
    if (last) end = bytes.size();
    const std::string_view line = bytes.substr(at, end - at);
    at = end + 1;
    ++number;
    const std::string_view trimmed = Trim(line);
    bool header = false;
    for (int32_t kind = kTextureProgram; kind < kProgramCount; ++kind)
      if (SameIgnoringCase(trimmed, kHeaders[kind])) section = kind, header = true;
    if (SameIgnoringCase(trimmed, kVariablesHeader)) section = kProgramCount, header = true;
    if (header) continue;
    if (section < kProgramCount) {
      std::string& text = loaded.text[size_t(section)];
      text.append(line);
      if (!last) text += '\n';
      if (text.size() > kMaxProgramText)
        return "A program of the file is longer than " + std::to_string(kMaxProgramText) + " characters.";
      continue;
    }
    const std::vector<std::string> words = Words(trimmed);
    if (words.empty()) continue;
    UserVariable v;
    const bool read = (words.size() == 3 || words.size() == 4) && ReadNumber(words[1], &v.minimum) &&
                      ReadNumber(words[2], &v.maximum) && (words.size() == 3 || ReadNumber(words[3], &v.position));
    if (!read) return "Line " + std::to_string(number) + " of the file: a variable is NAME MINIMUM MAXIMUM [POSITION].";
    const size_t before = loaded.vars.size();
    const AddVariable added = AddUserVariable(loaded, words[0]);
    if (added != AddVariable::kAdded || loaded.vars.size() != before + 1)
      return "Line " + std::to_string(number) + " of the file: the variable name \"" + words[0] +
             "\" is refused (reserved, too short, repeated, or one too many).";
    v.name = loaded.vars.back().name;
    loaded.vars.back() = v;
  }
  loaded.Sanitize();
  set = std::move(loaded);
  return "";
}

std::string ReadProgramFile(const std::string& path, ProgramSet& set) {
  // One byte past the limit tells a file that is too large.
  std::string bytes;
  if (!ReadFileUpTo(path, kMaxProgramFileBytes + 1, &bytes)) return kMessageCannotOpen;
  return ParseProgramFile(bytes, set);
}

std::string WriteProgramFile(const std::string& path, const ProgramSet& set) {
  return WriteFileWhole(path, FormatProgramFile(set)) ? "" : kMessageCannotCreate;
}

}  // namespace nimbo::implicit
