// nimbo_frei0r_doc OUTDIR "NAME|LAYOUT"...: writes one HTML page per frei0r
// plug-in, OUTDIR/<plug-in file>.html, listing its parameters exactly as the
// plug-in offers them (the same description code runs in both), with what each
// maps onto in the effect. Run at build time with NIMBO_PLUGINS_PATH naming
// the package's folder.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bridge_catalog.h"
#include "runtime/host_error.h"
#include "runtime/pending_file.h"
#include "runtime/settings_edit.h"

namespace {

using nimbo::frei0r::Layout;
using nimbo::frei0r::ParamSource;
using nimbo::frei0r::ParamDesc;
using nimbo::frei0r::ParamType;

std::string Html(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string Number(double value) {
  char text[48];
  std::snprintf(text, sizeof text, "%.6g", value);
  return text;
}

std::string Hex(double rgb) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%06X", unsigned(rgb) & 0xFFFFFFu);
  return text;
}

const char* TypeName(ParamType type) {
  switch (type) {
    case ParamType::kBool: return "bool";
    case ParamType::kDouble: return "double";
    case ParamType::kColor: return "color";
    case ParamType::kString: return "string";
  }
  return "";
}

std::string Range(const ParamDesc& p) {
  switch (p.type) {
    case ParamType::kBool: return "0 (off) or 1 (on)";
    case ParamType::kColor: return "r, g, b in 0..1 &rarr; 0xRRGGBB";
    case ParamType::kString: return "text";
    case ParamType::kDouble:
      return "0..1 &rarr; " + Number(p.minimum) + " .. " + Number(p.maximum) + (p.whole ? " (whole numbers)" : "");
  }
  return "";
}

std::string Default(const ParamDesc& p) {
  const nimbo::frei0r::ParamValue v = nimbo::frei0r::DefaultValue(p);
  switch (p.type) {
    case ParamType::kBool: return Number(v.number);
    case ParamType::kColor: return Number(v.red) + ", " + Number(v.green) + ", " + Number(v.blue) + " (" + Hex(p.default_value) + ")";
    case ParamType::kString: return p.default_text.empty() ? "(empty)" : Html(p.default_text);
    case ParamType::kDouble: return Number(v.number) + " (" + Number(p.default_value) + ")";
  }
  return "";
}

std::string MapsTo(const ParamDesc& p) {
  switch (p.source) {
    case ParamSource::kSetting: return "setting <code>" + Html(p.target) + "</code> (" + p.store_type + ")";
    case ParamSource::kDynVar:
      return "dynamic variable &ldquo;" + Html(p.target) + "&rdquo;" +
             (p.condition.empty() ? "" : " (declared with <code>" + Html(p.condition) + "</code>)");
    case ParamSource::kSlider: return "slider &ldquo;" + Html(p.target) + "&rdquo;";
    case ParamSource::kPreset: return "the settings document loaded first (<code>nimbo render --preset</code>)";
    case ParamSource::kValuesFile: return "the published values (<code>nimbo render --values</code>)";
  }
  return "";
}

std::string Page(const nimbo::frei0r::EffectDescription& d, const std::string& effect, Layout layout) {
  const std::string file = nimbo::frei0r::PluginFileName(effect, layout);
  std::string name = nimbo::frei0r::PluginName(effect, layout);
  std::string gst = name;
  for (char& c : gst) c = c == ' ' ? '-' : c;
  const bool mixer = layout == Layout::kMixer;
  std::string page = "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>" + Html(name) +
                     "</title></head>\n<body>\n<h1>" + Html(name) + "</h1>\n<p>The nimbo one effect <b>" +
                     Html(effect) + "</b> as a frei0r " + (mixer ? "mixer (two inputs)" : "filter") +
                     ", colour model BGRA8888, in <code>" + file + ".so</code>.";
  if (layout == Layout::kStacked)
    page += " Its two inputs come stacked in one frame: the keyed picture on top, the background below "
            "(<code>[fg][bg]vstack</code>); the result fills the top half.";
  page += "</p>\n<ul>\n<li>ffmpeg: <code>frei0r=filter_name=" + file + ":filter_params=...</code> (values in the order below, separated by <code>|</code>)</li>\n";
  page += std::string("<li>MLT: <code>") + (mixer ? "-transition" : "-filter") + " frei0r." + file + "</code></li>\n";
  page += std::string("<li>GStreamer: <code>frei0r-") + (mixer ? "mixer-" : "filter-") + Html(gst) + "</code></li>\n</ul>\n";
  page += "<table border=\"1\">\n<tr><th>#</th><th>name</th><th>type</th><th>range</th><th>default</th>"
          "<th>what it does</th><th>maps to</th></tr>\n";
  for (size_t i = 0; i < d.params.size(); ++i) {
    const ParamDesc& p = d.params[i];
    page += "<tr><td>" + std::to_string(i) + "</td><td>" + Html(p.name) + "</td><td>" + TypeName(p.type) +
            "</td><td>" + Range(p) + "</td><td>" + Default(p) + "</td><td>" + Html(p.explanation) + "</td><td>" +
            MapsTo(p) + "</td></tr>\n";
  }
  page += "</table>\n<p>Parameters left at their defaults keep what a preset holds; times jumping back or "
          "ahead (a seek) start the effect's history over.</p>\n";
  if (!d.indexed.empty()) {
    page += "<p>Keys with a number formatted in are no parameters: how many there are follows a count. Give them "
            "in the preset (<code>nimbo render --set</code> the count, then the keys, and "
            "<code>--save-preset</code>):</p>\n<ul>\n";
    for (const nimbo::host::IndexedSettingRecord& family : d.indexed) {
      const nimbo::host::SettingRecord& s = family.setting;
      page += "<li><code>" + Html(s.key) + "</code>, " + nimbo::host::StoreTypeName(s.type);
      if (s.minimum < s.maximum) page += " " + Number(s.minimum) + " .. " + Number(s.maximum);
      page += ", counted by <code>" + Html(nimbo::host::CountKeysText(family)) + "</code>: " + Html(s.help) + "</li>\n";
    }
    page += "</ul>\n";
  }
  page += "</body></html>\n";
  return page;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: nimbo_frei0r_doc OUTDIR \"NAME|LAYOUT\"...\n");
    return 2;
  }
  try {
    std::string error;
    const nimbo::host::Package* package = nimbo::frei0r::SharedPackage(nullptr, &error);
    if (!package) throw nimbo::host::HostError(error);
    const std::string folder = argv[1];
    std::filesystem::create_directories(folder);
    for (int i = 2; i < argc; ++i) {
      const std::string plugin = argv[i];
      const size_t bar = plugin.find('|');
      const std::string effect = plugin.substr(0, bar);
      const Layout layout = static_cast<Layout>(bar == std::string::npos ? 0 : std::atoi(plugin.c_str() + bar + 1));
      const std::string text = Page(nimbo::frei0r::DescribeEffect(*package, effect), effect, layout);
      nimbo::host::PendingFile file(folder + "/" + nimbo::frei0r::PluginFileName(effect, layout) + ".html");
      file.WriteAll(text.data(), text.size());
      file.Commit();
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "nimbo_frei0r_doc: %s\n", e.what());
    return 1;
  }
  return 0;
}
