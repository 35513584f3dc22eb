// nimbo list: the package's effects in index order.
#include <cstdio>
#include <string>

#include "cli/command_support.h"
#include "cli/commands.h"
#include "cli/text_out.h"

namespace nimbo::host {
namespace {

std::string JoinInputs(const EffectEntry& e) {
  std::string text;
  for (const std::string& input : e.inputs) text += (text.empty() ? "" : ", ") + input;
  return text.empty() ? "-" : text;
}

}  // namespace

int RunList(const CommandLine& cl) {
  const auto package = LoadPackage(cl);
  if (cl.json) {
    std::string out = "[\n";
    for (size_t n = 0; n < package->Catalog().size(); ++n) {
      const EffectEntry& e = package->Catalog()[n];
      std::string inputs;
      for (const std::string& input : e.inputs) inputs += (inputs.empty() ? "" : ", ") + JsonString(input);
      out += "  {\"index\": " + std::to_string(e.index) + ", \"name\": " + JsonString(e.name) +
             ", \"short_name\": " + JsonString(e.short_name) + ", \"category\": " + JsonString(e.category) +
             ", \"inputs\": [" + inputs + "], \"output\": " +
             (e.output_name_known ? JsonString(e.output_name) : std::string("null")) + ", \"id\": " +
             JsonString(HexId(e.id)) + "}" + (n + 1 < package->Catalog().size() ? ",\n" : "\n");
    }
    out += "]\n";
    std::fputs(out.c_str(), stdout);
    return 0;
  }
  std::printf("%-5s %-16s %-26s %-12s %s\n", "index", "name", "category", "output", "inputs");
  for (const EffectEntry& e : package->Catalog()) {
    const std::string output = e.output_name_known ? "\"" + e.output_name + "\"" : "?";
    std::printf("%5d %-16s %-26s %-12s %s\n", e.index, e.short_name.c_str(), e.category.c_str(), output.c_str(),
                JoinInputs(e).c_str());
  }
  return 0;
}

// The program's version, then the package's own description line when the
// package loads; without a package the program's version is still an answer.
int RunVersion(const CommandLine& cl) {
  std::puts("nimbo 1.0");
  try {
    const auto package = LoadPackage(cl);
    const char* info = package->Info();
    if (info) std::puts(info);
  } catch (const HostError&) {
  }
  return 0;
}

}  // namespace nimbo::host
