// The help installed beside the package: every image effect's help button
// must open a page that exists and that documents what the effect stores and
// publishes. Keys, dynamic variables, sliders and published outputs are the
// names a user types (in --set, --dyn, presets) or reads (--values), so a
// page must show each of them as code: <code>name</code>, HTML-escaped.
// Each setting's row in the page's settings table must give the range the
// effect reports to its host and the default a fresh effect writes, so the
// page cannot drift from the effect.
// The pages' own links (index, stylesheet, back links) must resolve inside
// the help folder. The pages read here are the built ones, with the blocks
// the 3D effects' pages share (package/render3d/help/) expanded into them. 3D effects are checked once their page exists (the ones
// still without an implementation have none yet). Every page shows a picture
// of its effect at work, taken from `nimbo demo`, which must decode.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/effect_base.h"
#include "framework/config_data.h"
#include "framework/xml_document.h"
#include "orrery/package.h"
#include "orrery/services.h"
#include "test_host.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace {

namespace fs = std::filesystem;
using nimbo::testing::TestHost;

const fs::path kHelpDir = fs::path(NIMBO_PLUGINS_DIR) / "nimbo_one.help";
constexpr char k3DPrefix[] = "nimbo one\\3D Effect\\";
constexpr char kNamePrefix[] = "nimbo one\\";

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string HtmlEscaped(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '&')
      out += "&amp;";
    else if (c == '<')
      out += "&lt;";
    else if (c == '>')
      out += "&gt;";
    else
      out += c;
  }
  return out;
}

bool ShowsAsCode(const std::string& page, const std::string& name) {
  return page.find("<code>" + HtmlEscaped(name) + "</code>") != std::string::npos;
}

struct StoredValue {
  std::string key;
  std::string type;  // "int", "float", "string", "path"
  std::string text;
};

// The "data" elements of the store's ConfigData, in order; false when the
// document has no ConfigData block at all.
bool StoredValues(const std::string& document, std::vector<StoredValue>& values) {
  nimbo::XmlDocument doc;
  if (!doc.SetDoc(document) || !doc.FindElem(nimbo::kSettingsElem) || !doc.FindChildElem(nimbo::kConfigDataElem)) {
    return false;
  }
  doc.IntoElem();
  doc.IntoElem();
  while (doc.FindElem("data")) values.push_back({doc.GetAttrib("name"), doc.GetAttrib("type"), doc.GetData()});
  return true;
}

bool HasDigit(const std::string& key) { return key.find_first_of("0123456789") != std::string::npos; }

void CollectOutput(void* user, const char* name, const char*, float) {
  static_cast<std::vector<std::string>*>(user)->push_back(name);
}

// Local link targets (href and src) of a page, relative to its folder,
// without their #fragment.
std::vector<std::string> LocalLinks(const std::string& page) {
  std::vector<std::string> links;
  for (const char* attribute : {"href=\"", "src=\""}) {
    const std::string needle = attribute;
    for (size_t at = page.find(needle); at != std::string::npos; at = page.find(needle, at + 1)) {
      const size_t start = at + needle.size();
      const size_t end = page.find_first_of("\"#", start);
      if (end == std::string::npos) break;
      if (end > start) links.push_back(page.substr(start, end - start));
    }
  }
  return links;
}

// One row of a page's settings table: the keys its first cell shows as code,
// and the text of its Range and Default cells (the last two), tags removed.
struct PageRow {
  std::vector<std::string> keys;
  std::string range;
  std::string def;
};

std::string HtmlUnescaped(std::string text) {
  for (const auto& [entity, c] : {std::pair{"&lt;", "<"}, std::pair{"&gt;", ">"}, std::pair{"&amp;", "&"}}) {
    for (size_t at = text.find(entity); at != std::string::npos; at = text.find(entity, at + 1)) {
      text.replace(at, std::string(entity).size(), c);
    }
  }
  return text;
}

std::string WithoutTags(const std::string& html) {
  std::string text;
  bool in_tag = false;
  for (char c : html) {
    if (c == '<')
      in_tag = true;
    else if (c == '>')
      in_tag = false;
    else if (!in_tag)
      text += c;
  }
  return HtmlUnescaped(text);
}

// The inner HTML of each `<tag ...>...</tag>` in `html`, in order (no nesting).
std::vector<std::string> Elements(const std::string& html, const std::string& tag) {
  std::vector<std::string> inner;
  const std::string open = "<" + tag, close = "</" + tag + ">";
  for (size_t at = html.find(open); at != std::string::npos; at = html.find(open, at + 1)) {
    const char after = at + open.size() < html.size() ? html[at + open.size()] : '\0';
    if (after != '>' && after != ' ') continue;  // <th> is not <thead>
    const size_t start = html.find('>', at);
    const size_t end = html.find(close, start);
    if (start == std::string::npos || end == std::string::npos) break;
    inner.push_back(html.substr(start + 1, end - start - 1));
    at = end;
  }
  return inner;
}

// The rows of the page's tables whose header reads `first`, ..., Range,
// Default: "Key" for the settings tables, "Variable" for the dynamic
// variables.
std::vector<PageRow> TableRows(const std::string& page, const std::string& first) {
  std::vector<PageRow> rows;
  for (const std::string& table : Elements(page, "table")) {
    const std::vector<std::string> head = Elements(table, "th");
    if (head.size() < 3 || head.front() != first || head[head.size() - 2] != "Range" || head.back() != "Default") {
      continue;
    }
    for (const std::string& tr : Elements(table, "tr")) {
      const std::vector<std::string> cells = Elements(tr, "td");
      if (cells.size() != head.size()) continue;  // the header row
      PageRow row{{}, WithoutTags(cells[cells.size() - 2]), WithoutTags(cells.back())};
      for (const std::string& code : Elements(cells.front(), "code")) row.keys.push_back(HtmlUnescaped(code));
      rows.push_back(row);
    }
  }
  return rows;
}

constexpr std::string_view kMinus = "\u2212";     // how the pages write a negative number
constexpr std::string_view kEllipsis = "\u2026";  // between the ends of a range

void SkipSpaces(std::string_view& text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\n' || text.front() == '\t')) text.remove_prefix(1);
}

// Reads a number from the front of `text`: decimal, or hexadecimal "0x...",
// with an optional sign ('-' or the Unicode minus). False when none is there.
bool TakeNumber(std::string_view& text, double& value) {
  SkipSpaces(text);
  bool negative = false;
  if (text.starts_with(kMinus)) {
    negative = true;
    text.remove_prefix(kMinus.size());
  } else if (text.starts_with("-")) {
    negative = true;
    text.remove_prefix(1);
  }
  const std::string rest(text);
  char* end = nullptr;
  if (rest.starts_with("0x") || rest.starts_with("0X")) {
    value = double(std::strtoull(rest.c_str() + 2, &end, 16));
    if (end == rest.c_str() + 2) return false;
  } else {
    if (rest.empty() || !(std::isdigit(static_cast<unsigned char>(rest[0])) || rest[0] == '.')) return false;
    value = std::strtod(rest.c_str(), &end);
  }
  text.remove_prefix(size_t(end - rest.c_str()));
  if (negative) value = -value;
  return true;
}

// "MIN … MAX" (or "MIN ... MAX"), and nothing else unless `unit_may_follow`
// ("0 … 255 levels").
bool ParseRange(std::string_view text, double& minimum, double& maximum, bool unit_may_follow = false) {
  if (!TakeNumber(text, minimum)) return false;
  SkipSpaces(text);
  if (text.starts_with(kEllipsis))
    text.remove_prefix(kEllipsis.size());
  else if (text.starts_with("..."))
    text.remove_prefix(3);
  else
    return false;
  if (!TakeNumber(text, maximum)) return false;
  if (unit_may_follow && text.starts_with(' ')) return true;
  SkipSpaces(text);
  return text.empty();
}

// A number, optionally followed by an explanation in parentheses.
bool ParseDefault(std::string_view text, double& value) {
  if (!TakeNumber(text, value)) return false;
  SkipSpaces(text);
  return text.empty() || (text.starts_with("(") && text.ends_with(")"));
}

// A variable's initial value: a number, or the setting it starts from with
// that setting's default ("the stored radius (4)").
bool ParseInitial(std::string_view text, double& value) {
  constexpr std::string_view kStored = "the stored ";
  if (!text.starts_with(kStored)) return ParseDefault(text, value);
  const size_t open = text.find('(');
  if (open == std::string_view::npos || !text.ends_with(")")) return false;
  text = text.substr(open + 1, text.size() - open - 2);
  return TakeNumber(text, value) && text.empty();
}

// Integers must match exactly; floats to the precision a store keeps (six
// decimals) and the digits a page shows.
bool SameNumber(double page, double effect, bool is_float) {
  if (!is_float) return page == effect;
  return std::fabs(page - effect) <= 1e-6 * std::max(1.0, std::fabs(effect));
}

struct ImageEffect {
  int32_t index;
  std::string name;       // without "nimbo one\"
  std::string help_page;  // relative to the help folder
};

std::vector<ImageEffect> ImageEffects() {
  std::vector<ImageEffect> effects;
  for (int32_t i = 0; i < orrpkgGetSize(); ++i) {
    std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(i));
    auto* base = dynamic_cast<nimbo::CEffectBase*>(effect.get());
    if (!base) {
      ADD_FAILURE() << "effect " << i << " is not a CEffectBase";
      continue;
    }
    const std::string name = effect->GetName();
    if (name.rfind(k3DPrefix, 0) == 0 && !fs::is_regular_file(kHelpDir / (base->HelpPage() ? base->HelpPage() : "")))
      continue;
    EXPECT_EQ(name.rfind(kNamePrefix, 0), 0u) << name;
    // The page's heading is the name without its folders ("Blob 3D").
    effects.push_back({i, name.substr(name.rfind('\\') + 1), base->HelpPage() ? base->HelpPage() : ""});
  }
  return effects;
}

TEST(HelpPages, EveryImageEffectHasAPageThatDocumentsWhatItStoresAndPublishes) {
  const std::vector<ImageEffect> effects = ImageEffects();
  ASSERT_FALSE(effects.empty());
  int32_t checked_keys = 0;
  for (const ImageEffect& e : effects) {
    SCOPED_TRACE(e.name);
    ASSERT_FALSE(e.help_page.empty());
    const fs::path path = kHelpDir / e.help_page;
    ASSERT_TRUE(fs::is_regular_file(path)) << path;
    const std::string page = ReadFile(path);
    EXPECT_NE(page.find("<h1>" + HtmlEscaped(e.name) + "</h1>"), std::string::npos) << "the page's heading";

    TestHost host;
    std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(e.index));
    ASSERT_TRUE(effect);
    effect->SetHostContext(&host);
    effect->UpdateConfig();

    std::vector<StoredValue> values;
    EXPECT_TRUE(StoredValues(host.store.Text(), values)) << host.store.Text();
    for (const StoredValue& value : values) {
      const std::string& key = value.key;
      // Keys with an index formatted in ("alphamap_0_x", "dyn0min",
      // "morph0name") are documented by their pattern ("alphamap_%i_x").
      if (HasDigit(key)) continue;
      EXPECT_TRUE(ShowsAsCode(page, key)) << "settings key " << key;
      ++checked_keys;
    }
    for (const orrery::DynVar* v = host.dynvars; v; v = v->next) {
      if (!v->declared) continue;
      EXPECT_TRUE(ShowsAsCode(page, v->name)) << "dynamic variable " << v->name;
    }
    for (const orrery::SliderDesc& slider : host.sliders) {
      EXPECT_TRUE(ShowsAsCode(page, slider.name)) << "slider " << slider.name;
    }
    std::vector<std::string> outputs;
    orrery::VisitOutputValues(effect.get(), CollectOutput, &outputs);
    for (const std::string& output : outputs) EXPECT_TRUE(ShowsAsCode(page, output)) << "output " << output;
  }
  EXPECT_GT(checked_keys, 0) << "no settings key was found in any store";
}

TEST(HelpPages, EverySettingsRowGivesTheRangeTheEffectReportsAndTheDefaultItWrites) {
  int32_t checked_ranges = 0, checked_defaults = 0;
  for (const ImageEffect& e : ImageEffects()) {
    SCOPED_TRACE(e.name);
    const std::string page = ReadFile(kHelpDir / e.help_page);
    const std::vector<PageRow> rows = TableRows(page, "Key");
    std::map<std::string, const PageRow*> row_of;
    for (const PageRow& row : rows) {
      for (const std::string& key : row.keys) row_of.emplace(key, &row);
    }

    TestHost host;
    std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(e.index));
    ASSERT_TRUE(effect);
    effect->SetHostContext(&host);
    effect->UpdateConfig();
    std::vector<StoredValue> values;
    StoredValues(host.store.Text(), values);
    std::map<std::string, const StoredValue*> stored;
    for (const StoredValue& value : values) stored.emplace(value.key, &value);

    for (const orrery::SettingInfo& info : host.described) {
      SCOPED_TRACE(info.key);
      const bool numeric = info.type == orrery::SettingType::kInt || info.type == orrery::SettingType::kFloat;
      EXPECT_TRUE(stored.count(info.key)) << "described but not written by a fresh effect";
      const auto found = row_of.find(info.key);
      if (found == row_of.end()) {
        ADD_FAILURE() << "no row in the settings table";
        continue;
      }
      if (!numeric) continue;
      double minimum = 0, maximum = 0;
      if (!ParseRange(found->second->range, minimum, maximum)) {
        ADD_FAILURE() << "range cell \"" << found->second->range << "\" is not MIN … MAX";
        continue;
      }
      const bool is_float = info.type == orrery::SettingType::kFloat;
      EXPECT_TRUE(SameNumber(minimum, info.minimum, is_float))
          << "page minimum " << minimum << ", effect " << info.minimum;
      EXPECT_TRUE(SameNumber(maximum, info.maximum, is_float))
          << "page maximum " << maximum << ", effect " << info.maximum;
      ++checked_ranges;
    }

    for (const StoredValue& value : values) {
      // Keys with an index formatted in are documented by their pattern and
      // their default in words ("(0, 0) and (1, 1)").
      if (HasDigit(value.key)) continue;
      SCOPED_TRACE(value.key);
      const auto found = row_of.find(value.key);
      if (found == row_of.end()) {
        ADD_FAILURE() << "written by a fresh effect but no row in the settings table";
        continue;
      }
      if (value.type != "int" && value.type != "float") continue;
      double shown = 0;
      if (!ParseDefault(found->second->def, shown)) {
        ADD_FAILURE() << "default cell \"" << found->second->def << "\" is not a number";
        continue;
      }
      const double written = std::strtod(value.text.c_str(), nullptr);
      EXPECT_TRUE(SameNumber(shown, written, value.type == "float"))
          << "page default " << found->second->def << ", a fresh effect writes " << value.text;
      ++checked_defaults;
    }
  }
  EXPECT_GT(checked_ranges, 0);
  EXPECT_GT(checked_defaults, 0);
}

struct Variable {
  std::string name;
  float minimum, maximum, initial;
};

// The float variables effect `index` declares on a fresh store, and those it
// declares only with one of its switches on (ChromaKeyPRO's use_dynvars).
std::vector<Variable> DeclaredVariables(int32_t index) {
  std::vector<Variable> variables;
  auto collect = [&](const char* switch_key) {
    TestHost host;
    std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(index));
    effect->SetHostContext(&host);
    if (switch_key) {
      host.store.BeginWriting();
      host.store.SetInt(switch_key, 1);
    }
    effect->UpdateConfig();
    for (const orrery::DynVar* v = host.dynvars; v; v = v->next) {
      if (!v->declared || v->type != orrery::kDynVarFloat) continue;
      const bool known =
          std::any_of(variables.begin(), variables.end(), [&](const Variable& k) { return k.name == v->name; });
      if (!known) variables.push_back({v->name, v->varmin, v->varmax, v->varinit});
    }
    return host.described;
  };
  for (const orrery::SettingInfo& info : collect(nullptr)) {
    if (info.type == orrery::SettingType::kInt && info.minimum == 0 && info.maximum == 1) collect(info.key);
  }
  return variables;
}

TEST(HelpPages, EveryVariableRowGivesTheRangeAndInitialValueTheEffectDeclares) {
  int32_t checked = 0;
  for (const ImageEffect& e : ImageEffects()) {
    SCOPED_TRACE(e.name);
    const std::vector<PageRow> rows = TableRows(ReadFile(kHelpDir / e.help_page), "Variable");
    for (const Variable& v : DeclaredVariables(e.index)) {
      SCOPED_TRACE(v.name);
      const auto row = std::find_if(rows.begin(), rows.end(), [&](const PageRow& r) {
        return std::find(r.keys.begin(), r.keys.end(), v.name) != r.keys.end();
      });
      if (row == rows.end()) {
        ADD_FAILURE() << "no row in a dynamic variables table";
        continue;
      }
      double minimum = 0, maximum = 0, initial = 0;
      EXPECT_TRUE(ParseRange(row->range, minimum, maximum, true) && SameNumber(minimum, v.minimum, true) &&
                  SameNumber(maximum, v.maximum, true))
          << "page range \"" << row->range << "\", the effect declares " << v.minimum << " … " << v.maximum;
      EXPECT_TRUE(ParseInitial(row->def, initial) && SameNumber(initial, v.initial, true))
          << "page default \"" << row->def << "\", the effect declares " << v.initial;
      ++checked;
    }
  }
  EXPECT_GT(checked, 0);
}

// The parsing the check above relies on, on the forms the pages use.
TEST(HelpPages, RangeAndDefaultCellsParseLeniently) {
  double lo = 0, hi = 0, v = 0;
  EXPECT_TRUE(ParseRange("0 \u2026 0xFFFFFF", lo, hi));
  EXPECT_EQ(lo, 0);
  EXPECT_EQ(hi, 16777215);
  EXPECT_TRUE(ParseRange("\u2212256 \u2026 256", lo, hi));
  EXPECT_EQ(lo, -256);
  EXPECT_TRUE(ParseRange("\u22123.1415927 ... 3.1415927", lo, hi));
  EXPECT_DOUBLE_EQ(hi, 3.1415927);
  EXPECT_FALSE(ParseRange("\u2014", lo, hi));
  EXPECT_FALSE(ParseRange("0 \u2026 1 frames", lo, hi));
  EXPECT_TRUE(ParseDefault("0x0000FF (255, pure blue)", v));
  EXPECT_EQ(v, 255);
  EXPECT_TRUE(ParseDefault("\u22124", v));
  EXPECT_EQ(v, -4);
  EXPECT_TRUE(ParseDefault("0.25", v));
  EXPECT_EQ(v, 0.25);
  EXPECT_FALSE(ParseDefault("(0, 0) and (1, 1)", v));
  EXPECT_FALSE(ParseDefault("4 or 5", v));
  EXPECT_TRUE(ParseRange("0 \u2026 255 levels", lo, hi, true));
  EXPECT_EQ(hi, 255);
  EXPECT_TRUE(ParseInitial("the stored blue_x (\u22124)", v));
  EXPECT_EQ(v, -4);
  EXPECT_TRUE(SameNumber(0.1, 0.100000, true));
  EXPECT_FALSE(SameNumber(0.1, 0.1001, true));
  EXPECT_FALSE(SameNumber(3, 4, false));
}

TEST(HelpPages, TheIndexLinksEveryPageAndNoLinkIsBroken) {
  const fs::path index = kHelpDir / "index.htm";
  ASSERT_TRUE(fs::is_regular_file(index)) << index;
  const std::string index_text = ReadFile(index);
  for (const ImageEffect& e : ImageEffects()) {
    EXPECT_NE(index_text.find("href=\"" + e.help_page + "\""), std::string::npos) << e.name << " in the index";
  }

  int32_t pages = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(kHelpDir)) {
    if (entry.path().extension() != ".htm") continue;
    ++pages;
    const std::string page = ReadFile(entry.path());
    EXPECT_EQ(page.find("<script"), std::string::npos) << entry.path() << ": pages carry no scripts";
    // Shared blocks are expanded when the help is built; a marker left in a
    // page would show the reader nothing where the block belongs.
    EXPECT_EQ(page.find("<!--#include"), std::string::npos) << entry.path() << ": an include marker left in";
    for (const std::string& link : LocalLinks(page)) {
      ASSERT_EQ(link.find("://"), std::string::npos) << entry.path() << ": external link " << link;
      const fs::path target = (entry.path().parent_path() / link).lexically_normal();
      EXPECT_TRUE(fs::exists(target)) << entry.path() << " links to " << link;
      const std::string relative = target.lexically_relative(kHelpDir).string();
      EXPECT_TRUE(!relative.empty() && relative.rfind("..", 0) != 0) << entry.path() << " leaves the help: " << link;
    }
  }
  EXPECT_GT(pages, 1);
}

// The size `nimbo demo` renders at unless told otherwise: the size of the
// pictures the pages show.
constexpr int kDemoWidth = 320;
constexpr int kDemoHeight = 180;

// The size of the first picture FFmpeg decodes from `path` (as the host reads
// pictures); 0 x 0 when none decodes.
std::pair<int, int> DecodedSize(const fs::path& path) {
  std::pair<int, int> size{0, 0};
  AVFormatContext* format = nullptr;
  if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0) return size;
  const AVCodec* decoder = nullptr;
  AVCodecContext* codec = nullptr;
  AVPacket* packet = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  const int stream =
      avformat_find_stream_info(format, nullptr) < 0 ? -1 : av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
  if (stream >= 0 && packet && frame && (codec = avcodec_alloc_context3(decoder)) &&
      avcodec_parameters_to_context(codec, format->streams[stream]->codecpar) >= 0 &&
      avcodec_open2(codec, decoder, nullptr) >= 0) {
    while (size.first == 0 && av_read_frame(format, packet) >= 0) {
      const bool sent = packet->stream_index == stream && avcodec_send_packet(codec, packet) >= 0;
      av_packet_unref(packet);
      if (sent && avcodec_receive_frame(codec, frame) >= 0) size = {frame->width, frame->height};
    }
  }
  av_frame_free(&frame);
  av_packet_free(&packet);
  avcodec_free_context(&codec);
  avformat_close_input(&format);
  return size;
}

// The value of `attribute` in the tag that starts at `tag` ("" when absent).
std::string AttributeOf(const std::string& page, size_t tag, const std::string& attribute) {
  const size_t end = page.find('>', tag);
  const std::string needle = attribute + "=\"";
  for (size_t at = page.find(needle, tag); at != std::string::npos && at < end; at = page.find(needle, at + 1)) {
    if (!std::isspace(static_cast<unsigned char>(page[at - 1]))) continue;  // the end of another attribute's name
    const size_t start = at + needle.size();
    const size_t close = page.find('"', start);
    return close == std::string::npos || close > end ? "" : page.substr(start, close - start);
  }
  return "";
}

TEST(HelpPages, EveryPageShowsItsEffectAtWorkInAPictureFromTheDemo) {
  ASSERT_EQ(orrpkgGetSize(), 24);
  for (int32_t i = 0; i < orrpkgGetSize(); ++i) {
    std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(i));
    auto* base = dynamic_cast<nimbo::CEffectBase*>(effect.get());
    ASSERT_TRUE(base && base->HelpPage()) << "effect " << i;
    SCOPED_TRACE(effect->GetName());
    const fs::path page_path = kHelpDir / base->HelpPage();
    ASSERT_TRUE(fs::is_regular_file(page_path)) << page_path;
    const std::string page = ReadFile(page_path);
    // The picture is named after the page: LowQ.htm shows LowQ.png.
    const std::string picture = page_path.stem().string() + ".png";
    const size_t img = page.find("<img src=\"" + picture + "\"");
    ASSERT_NE(img, std::string::npos) << "the page shows " << picture;
    EXPECT_GE(AttributeOf(page, img, "alt").size(), 10u) << "the picture says in words what it shows";
    EXPECT_EQ(AttributeOf(page, img, "width"), std::to_string(kDemoWidth));
    EXPECT_EQ(AttributeOf(page, img, "height"), std::to_string(kDemoHeight));
    const fs::path picture_path = page_path.parent_path() / picture;
    ASSERT_TRUE(fs::is_regular_file(picture_path)) << picture_path;
    EXPECT_LT(fs::file_size(picture_path), 200u * 1024u) << "pictures stay small";
    EXPECT_EQ(DecodedSize(picture_path), std::make_pair(kDemoWidth, kDemoHeight)) << picture_path;
  }
}

}  // namespace
