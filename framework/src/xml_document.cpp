// XmlDocument: parser, reader and writer. See the header for what is accepted.
//
// Index of this file:
//   1. Tokens and nodes   (shared by the parser and the readers)
//   2. Parsing
//   3. Navigation and reading
//   4. Writing            (splicing text and shifting positions)
#include "framework/xml_document.h"

#include <algorithm>
#include <atomic>
#include <iterator>

namespace nimbo {
namespace {

constexpr size_t kNpos = std::string_view::npos;

// ---------------------------------------------------------------------------
// 1. Tokens and nodes
// ---------------------------------------------------------------------------

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Characters that end a name token; each is also a token of its own.
bool IsSpecial(char c) { return c == '<' || c == '>' || c == '=' || c == '\\' || c == '/' || c == '?' || c == '!'; }

bool IsQuote(char c) { return c == '"' || c == '\''; }

// One token: its text is [l, r); the next token starts looking at `next`.
// A quoted token's text excludes the quotes.
struct Token {
  size_t l = 0, r = 0, next = 0;
  bool quoted = false;
};

// Reads the first token at or after `pos`; never looks at `end` or beyond.
// An unterminated quote runs to `end`.
bool NextToken(std::string_view text, size_t pos, size_t end, Token& token) {
  while (pos < end && IsBlank(text[pos])) ++pos;
  if (pos >= end) return false;
  token.quoted = IsQuote(text[pos]);
  if (token.quoted) {
    token.l = pos + 1;
    const size_t quote = text.substr(0, end).find(text[pos], token.l);
    token.r = quote == kNpos ? end : quote;
    token.next = quote == kNpos ? end : quote + 1;
    return true;
  }
  size_t r = pos;
  while (r < end && !IsBlank(text[r]) && !IsSpecial(text[r])) ++r;
  if (r == pos) ++r;  // a special character stands alone
  token.l = pos;
  token.r = token.next = r;
  return true;
}

bool IsChar(std::string_view text, const Token& token, char c) {
  return !token.quoted && token.l < token.r && text[token.l] == c;
}

std::string_view TextOf(std::string_view text, const Token& token) { return text.substr(token.l, token.r - token.l); }

// The '>' that closes a start tag whose name token ends at `pos`; quoted
// values may hold '>'.
size_t StartTagEnd(std::string_view text, size_t pos) {
  Token token;
  while (NextToken(text, pos, text.size(), token)) {
    if (IsChar(text, token, '>')) return token.l;
    pos = token.next;
  }
  return kNpos;
}

// A declaration "<!...>" may hold quoted strings and a bracketed subset.
size_t DeclarationEnd(std::string_view text, size_t pos) {
  int brackets = 0;
  for (; pos < text.size(); ++pos) {
    const char c = text[pos];
    if (IsQuote(c)) {
      pos = text.find(c, pos + 1);
      if (pos == kNpos) return kNpos;
    } else if (c == '[') {
      ++brackets;
    } else if (c == ']') {
      --brackets;
    } else if (c == '>' && brackets <= 0) {
      return pos + 1;
    }
  }
  return kNpos;
}

size_t AfterMark(std::string_view text, std::string_view mark, size_t from) {
  const size_t at = text.find(mark, from);
  return at == kNpos ? kNpos : at + mark.size();
}

// A node other than an element: its first token (after '<') starts with '?' or '!'.
bool IsNode(std::string_view text, const Token& token) { return IsChar(text, token, '?') || IsChar(text, token, '!'); }

// The end of a node whose first token is `token`.
size_t NodeEnd(std::string_view text, const Token& token) {
  const size_t after = token.l + 1;
  if (text[token.l] == '?') return AfterMark(text, "?>", after);
  const std::string_view rest = text.substr(after);
  if (rest.starts_with("--")) return AfterMark(text, "-->", after + 2);
  if (rest.starts_with("[")) return AfterMark(text, "]]>", after + 1);
  return DeclarationEnd(text, after);
}

// The five entities; only attribute values encode the last two.
struct Entity {
  char c;
  std::string_view name;  // after the '&'
};
constexpr Entity kEntities[] = {{'<', "lt;"}, {'&', "amp;"}, {'>', "gt;"}, {'\'', "apos;"}, {'"', "quot;"}};
constexpr size_t kDataEntities = 3;

// The first token of a CDATA section (after its '<').
constexpr std::string_view kCdataStart = "![CDATA[";

// A valid name for writing: one name token that nothing can misread.
bool IsWritableName(std::string_view name) {
  if (name.empty()) return false;
  for (char c : name) {
    if (IsBlank(c) || IsSpecial(c) || IsQuote(c)) return false;
  }
  return true;
}

// Data as a CDATA section; "]]>" inside it is split across two sections.
std::string CdataText(std::string_view data) {
  std::string out = "<![CDATA[";
  for (size_t at; (at = data.find("]]>")) != kNpos; data.remove_prefix(at + 2)) {
    out.append(data.substr(0, at + 2)).append("]]><![CDATA[");
  }
  return out.append(data).append("]]>");
}

}  // namespace

// ---------------------------------------------------------------------------
// 2. Parsing
// ---------------------------------------------------------------------------

uint64_t XmlDocument::NextRevision() {
  static std::atomic<uint64_t> counter{0};
  return ++counter;
}

bool XmlDocument::SetDoc(std::string_view text) {
  text_.assign(text);
  error_.clear();
  last_added_ = 0;
  revision_ = NextRevision();
  const bool ok = Parse();
  if (!ok) {
    text_.clear();
    elems_.assign(1, Elem{0, 0, 0, 0, 0, 0, 0});
  }
  ResetPos();
  return ok;
}

bool XmlDocument::Fail(std::string_view format, std::string_view name) {
  const size_t at = format.find("%s");
  error_.assign(format.substr(0, at));
  if (at != kNpos) error_.append(name).append(format.substr(at + 2));
  return false;
}

// One pass over the text with an explicit stack of open elements: no
// recursion, so the depth limit is the only bound on nesting.
bool XmlDocument::Parse() {
  const std::string_view text = text_;
  elems_.assign(1, Elem{0, 0, text.size(), text.size(), 0, 0, 0});
  struct Open {
    int32_t elem, last_child;
    std::string_view name;
  };
  std::vector<Open> open{{0, 0, {}}};  // open[0] is the document
  // Every element starts at a '<': counting them sizes the index once
  // instead of growing it by copies.
  elems_.reserve(size_t(std::count(text.begin(), text.end(), '<')) + 1);
  size_t pos = 0;
  while (true) {
    const size_t lt = text.find('<', pos);
    if (lt == kNpos) {
      if (open.size() == 1) break;
      return Fail("End tag of %s element not found", open.back().name);
    }
    Token token;
    if (!NextToken(text, lt + 1, text.size(), token)) return Fail("Abrupt end within tag");
    if (token.quoted) return Fail("Tag starts with quote");
    if (IsNode(text, token)) {
      pos = NodeEnd(text, token);
      if (pos == kNpos) return Fail("Invalid node");
      continue;
    }
    if (IsChar(text, token, '/')) {
      if (open.size() == 1) break;  // ends the list of top-level elements
      pos = EndTagEnd(lt, open.back().name);
      if (pos == kNpos) return false;
      Elem& closed = elems_[open.back().elem];
      closed.end_l = lt;
      closed.end_r = pos;
      open.pop_back();
      continue;
    }
    const size_t gt = StartTagEnd(text, token.next);
    if (gt == kNpos) return Fail("End of tag not found");
    if (open.size() > kMaxDepth) return Fail("Nesting too deep");
    const auto index = static_cast<int32_t>(elems_.size());
    Open& parent = open.back();
    elems_.push_back(Elem{lt, gt + 1, gt + 1, gt + 1, parent.elem, 0, 0});
    (parent.last_child ? elems_[parent.last_child].next : elems_[parent.elem].child) = index;
    parent.last_child = index;
    pos = gt + 1;
    if (text[gt - 1] != '/') open.push_back({index, 0, TextOf(text, token)});
  }
  return elems_.size() > 1 || Fail("Element tag not found");
}

// Checks the end tag at `lt` against `name`; answers the position after it.
size_t XmlDocument::EndTagEnd(size_t lt, std::string_view name) {
  const std::string_view text = text_;
  Token token;
  int count = 0;
  for (size_t pos = lt + 1; NextToken(text, pos, text.size(), token); pos = token.next) {
    ++count;
    // The parser only calls this at a '<' followed by '/'; the check keeps the
    // function whole on its own.
    if (count == 1 && !IsChar(text, token, '/')) {
      Fail("Expecting end tag of element %s", name);
      return kNpos;
    }
    if (count == 2 && (token.quoted || TextOf(text, token) != name)) {
      Fail("End tag does not correspond to %s", name);
      return kNpos;
    }
    if (count > 2 && IsChar(text, token, '>')) return token.next;
  }
  Fail("End tag not completed for element %s", name);
  return kNpos;
}

// ---------------------------------------------------------------------------
// 3. Navigation and reading
// ---------------------------------------------------------------------------

bool XmlDocument::FindElem(const char* name) {
  for (int32_t i = pos_ ? elems_[pos_].next : elems_[parent_].child; i; i = elems_[i].next) {
    if (!name || TagName(i) == name) {
      pos_ = i;
      child_ = 0;
      return true;
    }
  }
  return false;
}

bool XmlDocument::FindChildElem(const char* name) {
  if (!pos_ && !FindElem()) return false;
  for (int32_t i = child_ ? elems_[child_].next : elems_[pos_].child; i; i = elems_[i].next) {
    if (!name || TagName(i) == name) {
      child_ = i;
      return true;
    }
  }
  return false;
}

void XmlDocument::ResetPos() { parent_ = pos_ = child_ = 0; }
void XmlDocument::ResetMainPos() { pos_ = child_ = 0; }
void XmlDocument::ResetChildPos() { child_ = 0; }

bool XmlDocument::IntoElem() {
  if (!pos_) return false;
  parent_ = pos_;
  pos_ = child_;
  child_ = 0;
  return true;
}

bool XmlDocument::OutOfElem() {
  if (!parent_) return false;
  child_ = pos_;
  pos_ = parent_;
  parent_ = elems_[parent_].parent;
  return true;
}

std::string XmlDocument::GetTagName() const { return std::string(TagName(pos_)); }

std::string_view XmlDocument::TagName(int32_t elem) const {
  const Elem& e = elems_[elem];
  Token token;
  if (!elem || !NextToken(text_, e.start_l + 1, e.start_r, token)) return {};
  return TextOf(text_, token);
}

// Content of a leaf: text runs (decoded) and CDATA sections (as they stand);
// comments and other nodes are skipped the way the parser skipped them.
std::string XmlDocument::DataOf(int32_t elem) const {
  const std::string_view text = text_;
  const Elem& e = elems_[elem];
  std::string data;
  if (!elem || e.child) return data;
  for (size_t pos = e.start_r; pos < e.end_l;) {
    const size_t lt = std::min(text.find('<', pos), e.end_l);
    data += Decode(text.substr(pos, lt - pos));
    Token token;
    if (lt == e.end_l || !NextToken(text, lt + 1, e.end_l, token) || !IsNode(text, token)) break;
    const size_t end = NodeEnd(text, token);
    if (end == kNpos || end > e.end_l) break;
    if (text.substr(token.l).starts_with(kCdataStart)) {
      const size_t from = token.l + kCdataStart.size();
      data.append(text.substr(from, end - 3 - from));
    }
    pos = end;
  }
  return data;
}

// Walks the attributes of a start tag. Only quoted values count; a name
// without '=' and a quoted value is skipped. `insert_at` is where a new
// attribute can go: after the tag name or the last complete attribute, never
// between a name and its '='.
XmlDocument::AttribSpot XmlDocument::LocateAttrib(int32_t elem, std::string_view name) const {
  const std::string_view text = text_;
  const Elem& e = elems_[elem];
  const size_t end = e.start_r - 1;  // the '>'
  AttribSpot spot;
  Token token, equals, value;
  NextToken(text, e.start_l + 1, end, token);  // the tag name
  spot.insert_at = token.next;
  for (size_t pos = token.next; NextToken(text, pos, end, token);) {
    pos = token.next;
    if (token.quoted || IsSpecial(text[token.l])) continue;
    if (!NextToken(text, pos, end, equals) || !IsChar(text, equals, '=')) continue;
    if (!NextToken(text, equals.next, end, value) || !value.quoted) continue;
    pos = spot.insert_at = value.next;
    if (TextOf(text, token) == name) {
      spot.found = true;
      spot.value_l = value.l;
      spot.value_r = value.r;
      break;
    }
  }
  return spot;
}

std::string_view XmlDocument::GetChildAttribText(std::string_view name, bool* found) const {
  const AttribSpot spot = child_ ? LocateAttrib(child_, name) : AttribSpot{};
  if (found) *found = spot.found;
  return spot.found ? std::string_view(text_).substr(spot.value_l, spot.value_r - spot.value_l) : std::string_view();
}

std::string XmlDocument::AttribOf(int32_t elem, std::string_view name, bool* found) const {
  const AttribSpot spot = elem ? LocateAttrib(elem, name) : AttribSpot{};
  if (found) *found = spot.found;
  return spot.found ? Decode(std::string_view(text_).substr(spot.value_l, spot.value_r - spot.value_l)) : std::string();
}

std::string XmlDocument::Encode(std::string_view text, bool attribute) {
  const auto* const end = kEntities + (attribute ? std::size(kEntities) : kDataEntities);
  std::string out;
  out.reserve(text.size() + 7 + text.size() / 10);  // the usual size; the string doubles beyond it
  for (char c : text) {
    const auto* entity = std::find_if(kEntities, end, [c](const Entity& e) { return e.c == c; });
    if (entity == end) {
      out += c;
    } else {
      out.append("&").append(entity->name);
    }
  }
  return out;
}

std::string XmlDocument::Decode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t amp; (amp = text.find('&')) != kNpos;) {
    out.append(text.substr(0, amp + 1));
    text.remove_prefix(amp + 1);
    for (const Entity& entity : kEntities) {
      if (text.starts_with(entity.name)) {
        out.back() = entity.c;
        text.remove_prefix(entity.name.size());
        break;
      }
    }
  }
  return out.append(text);
}

// ---------------------------------------------------------------------------
// 4. Writing
// ---------------------------------------------------------------------------

bool XmlDocument::AddElem(std::string_view name, std::string_view data, bool cdata) {
  const int32_t added = AddNode(parent_, pos_ ? pos_ : LastChild(parent_), name, data, cdata);
  if (!added) return false;
  pos_ = added;
  child_ = 0;
  return true;
}

bool XmlDocument::AddChildElem(std::string_view name, std::string_view data, bool cdata) {
  if (!pos_) return false;
  const int32_t added = AddNode(pos_, child_ ? child_ : LastChild(pos_), name, data, cdata);
  if (added) child_ = added;
  return added != 0;
}

bool XmlDocument::InsertChildElem(std::string_view name, std::string_view data, bool cdata) {
  if (!pos_) return false;
  const int32_t added = AddNode(pos_, child_ ? PrevSibling(child_) : 0, name, data, cdata);
  if (added) child_ = added;
  return added != 0;
}

// Writes "<name>data</name>\r\n" (or "<name/>\r\n") after `prev` under
// `parent`, or as the first child when `prev` is 0. Answers the new index.
int32_t XmlDocument::AddNode(int32_t parent, int32_t prev, std::string_view name, std::string_view data, bool cdata) {
  if (!IsWritableName(name) || Depth(parent) >= kMaxDepth) return 0;
  if (parent && elems_[parent].end_r == elems_[parent].start_r) OpenEmpty(parent);
  size_t at;
  if (prev) {
    // Behind the previous element's line break, so each element keeps its line.
    at = elems_[prev].end_r;
    at += text_.compare(at, 2, "\r\n") == 0 ? 2 : text_.compare(at, 1, "\n") == 0 ? 1 : 0;
  } else {
    const int32_t first = elems_[parent].child;
    at = first ? elems_[first].start_l : elems_[parent].end_l;
  }
  const std::string content = data.empty() ? "" : cdata ? CdataText(data) : Encode(data, false);
  std::string markup = "<" + std::string(name);
  if (content.empty()) {
    markup += "/>";
  } else {
    markup.append(">").append(content).append("</").append(name).append(">");
  }
  Splice(at, 0, markup + "\r\n", parent, prev ? elems_[prev].next : elems_[parent].child);
  Elem e{at, at + markup.size(), 0, 0, parent, 0, 0};
  if (content.empty()) {
    e.end_l = e.end_r = e.start_r;
  } else {
    e.start_r = at + name.size() + 2;
    e.end_l = e.start_r + content.size();
    e.end_r = e.end_l + name.size() + 3;
  }
  const auto index = static_cast<int32_t>(elems_.size());
  int32_t& link = prev ? elems_[prev].next : elems_[parent].child;
  e.next = link;
  link = index;
  elems_.push_back(e);
  if (!e.next) last_added_ = index;
  return index;
}

// "<name .../>" becomes "<name ...>\r\n</name>" so that children can go in.
void XmlDocument::OpenEmpty(int32_t elem) {
  const std::string name(TagName(elem));
  const size_t slash = elems_[elem].start_r - 2;
  Splice(slash, 2, ">\r\n</" + name + ">", elem, 0);
  Elem& e = elems_[elem];  // not shifted by Splice: it ends where the splice did
  e.start_r = slash + 1;
  e.end_l = e.start_r + 2;
  e.end_r = e.end_l + name.size() + 3;
}

bool XmlDocument::SetAttribOf(int32_t elem, std::string_view name, std::string_view value) {
  if (!elem || !IsWritableName(name)) return false;
  const std::string quoted = "\"" + Encode(value, true) + "\"";
  const AttribSpot spot = LocateAttrib(elem, name);
  if (spot.found) {
    // The value's own quotes sit just outside [value_l, value_r).
    Splice(spot.value_l - 1, spot.value_r + 2 - spot.value_l, quoted, elem, elems_[elem].child);
  } else {
    Splice(spot.insert_at, 0, " " + std::string(name) + "=" + quoted, elem, elems_[elem].child);
  }
  return true;
}

// Replaces [at, at + remove) with `insert` and shifts the positions behind
// it. Elements starting at or after the splice move whole; an element that
// contains the splice (an ancestor, or the one whose start tag is edited)
// moves its end, and its start tag end when the splice lies inside that tag.
//
// Only the elements that can move are visited: `container` (the innermost
// element holding the splice, 0 for the top level) and its ancestors, the
// children of `container` from `follower` on (the first one behind the
// splice), and every later sibling of `container` and of each ancestor, with
// their subtrees. Everything else ends before the splice. Siblings are linked
// in text order, so these are exactly the elements a scan of all would move.
void XmlDocument::Splice(size_t at, size_t remove, std::string_view insert, int32_t container, int32_t follower) {
  text_.replace(at, remove, insert);
  revision_ = NextRevision();
  const size_t p = at + remove;
  // Unsigned wrap-around makes adding this the same as subtracting when the
  // text shrinks.
  const size_t shift = insert.size() - remove;
  for (int32_t i = follower; i; i = elems_[i].next) ShiftTree(i, p, shift);
  for (int32_t x = container; x; x = elems_[x].parent) {
    ShiftElem(elems_[x], p, shift);
    for (int32_t i = elems_[x].next; i; i = elems_[i].next) ShiftTree(i, p, shift);
  }
  elems_[0].end_l = elems_[0].end_r = text_.size();
}

// Moves an element whole when it starts at or after the splice at `p`, or
// its end (and the end of its start tag when the splice lies inside the tag)
// when it only contains the splice.
void XmlDocument::ShiftElem(Elem& e, size_t p, size_t shift) {
  if (e.start_l >= p) {
    e.start_l += shift;
    e.start_r += shift;
    e.end_l += shift;
    e.end_r += shift;
  } else if (e.end_r > p) {
    if (e.start_r > p) e.start_r += shift;
    e.end_l += shift;
    e.end_r += shift;
  }
}

// Moves `root` and its subtree whole (they all start behind the splice at
// `p`); a walk over the links, without recursion.
void XmlDocument::ShiftTree(int32_t root, size_t p, size_t shift) {
  int32_t i = root;
  while (true) {
    ShiftElem(elems_[i], p, shift);
    if (elems_[i].child) {
      i = elems_[i].child;
      continue;
    }
    while (i != root && !elems_[i].next) i = elems_[i].parent;
    if (i == root) return;
    i = elems_[i].next;
  }
}

int32_t XmlDocument::LastChild(int32_t parent) const {
  if (last_added_ && elems_[last_added_].parent == parent && !elems_[last_added_].next) return last_added_;
  int32_t last = elems_[parent].child;
  while (last && elems_[last].next) last = elems_[last].next;
  return last;
}

int32_t XmlDocument::PrevSibling(int32_t elem) const {
  int32_t prev = 0;
  for (int32_t i = elems_[elems_[elem].parent].child; i != elem; i = elems_[i].next) prev = i;
  return prev;
}

int XmlDocument::Depth(int32_t elem) const {
  int depth = 0;
  for (; elem; elem = elems_[elem].parent) ++depth;
  return depth;
}

}  // namespace nimbo
