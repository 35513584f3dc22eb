// XmlDocument: a small XML document kept as one text string.
//
// The parser indexes every element by its positions in the text. Edits splice
// markup into the string and shift the positions of the elements behind the
// splice, so the index stays valid without parsing again.
//
// Navigation has three levels: the current parent, the current (main) element
// and the current child of the main element. Index 0 is the document itself,
// the parent of the top-level elements; as a link it means "none".
//
// What the parser accepts: elements with attributes in double or single quotes,
// any number of top-level elements (a stray end tag or the end of the text ends
// them; text after it is ignored). It skips processing instructions "<?...?>",
// comments "<!--...-->", sections "<![...]]>" and declarations "<!...>".
// Reading decodes exactly five entities (&lt; &amp; &gt; &apos; &quot;); any
// other '&' passes through unchanged. Attribute values must be quoted.
//
// Limits: elements nest at most kMaxDepth deep (deeper text fails with
// "Nesting too deep" and AddChildElem refuses to go deeper); every scan stays
// inside the text and is linear in its length. An edit visits only the
// elements that follow it or enclose it, so appending the children of one
// element one after another costs time linear in what is appended.
//
// Every change of the text gets a new revision number, unique in the process
// (a copy shares its original's number, and its content): readers that keep
// an index over the document rebuild it when the number changes.
//
// A failed parse leaves an empty document (no text, no elements) and keeps the
// error text. Threading: none; one owner at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nimbo {

class XmlDocument {
 public:
  static constexpr int kMaxDepth = 256;

  // Parses `text`. On failure the document is empty and GetError() tells why.
  bool SetDoc(std::string_view text);
  const std::string& GetDoc() const { return text_; }
  const std::string& GetError() const { return error_; }
  uint64_t Revision() const { return revision_; }

  // --- Navigation. A null name matches any element. A failed find moves nothing.
  // Next sibling of the main position under the current parent (the first one
  // when there is no main position); it becomes the main position.
  bool FindElem(const char* name = nullptr);
  // Next child of the main position; finds a main position first when there is none.
  bool FindChildElem(const char* name = nullptr);
  void ResetPos();       // back to the document's top level
  void ResetMainPos();   // before the first element under the current parent
  void ResetChildPos();  // before the first child of the main position
  bool IntoElem();       // the main position becomes the parent
  bool OutOfElem();      // the parent becomes the main position

  // --- Reading. Empty strings when there is no such element or attribute.
  std::string GetTagName() const;
  // The element's text with entities decoded and CDATA sections taken as they
  // stand. An element with child elements has no data.
  std::string GetData() const { return DataOf(pos_); }
  std::string GetChildData() const { return DataOf(child_); }
  // `found` (may be null) tells a missing attribute from an empty one.
  std::string GetAttrib(std::string_view name, bool* found = nullptr) const { return AttribOf(pos_, name, found); }
  std::string GetChildAttrib(std::string_view name, bool* found = nullptr) const {
    return AttribOf(child_, name, found);
  }
  // The child's attribute as it stands in the text, entities not decoded
  // (`found` as above); valid while Revision() is unchanged. Readers that
  // index many attributes decode only the values holding a '&'.
  std::string_view GetChildAttribText(std::string_view name, bool* found = nullptr) const;
  // How many elements the document holds.
  size_t ElementCount() const { return elems_.size() - 1; }
  // The current child as a handle (0 for none), and the data of the element
  // a handle names. A handle stays valid while Revision() is unchanged.
  int32_t ChildHandle() const { return child_; }
  std::string DataAt(int32_t handle) const { return handle > 0 && size_t(handle) < elems_.size() ? DataOf(handle) : ""; }

  // --- Writing. Empty data writes an empty element "<name/>"; `cdata` writes
  // the data as a CDATA section instead of encoding it. Names must be non-empty
  // and free of blanks, quotes and the characters < > = \ / ? !.
  // Adds after the main position (at the end when there is none); the new
  // element becomes the main position.
  bool AddElem(std::string_view name, std::string_view data = {}, bool cdata = false);
  // Adds after the current child (at the end when there is none); the new
  // element becomes the current child.
  bool AddChildElem(std::string_view name, std::string_view data = {}, bool cdata = false);
  // Inserts before the current child (first when there is none).
  bool InsertChildElem(std::string_view name, std::string_view data = {}, bool cdata = false);
  bool SetAttrib(std::string_view name, std::string_view value) { return SetAttribOf(pos_, name, value); }
  bool SetChildAttrib(std::string_view name, std::string_view value) { return SetAttribOf(child_, name, value); }

  // Encoding of written text: '<', '&', '>' (and in attribute values also
  // '\'' and '"') become entities.
  static std::string Encode(std::string_view text, bool attribute);
  static std::string Decode(std::string_view text);

 private:
  // Positions are indices into text_: the start tag is [start_l, start_r), the
  // end tag [end_l, end_r). An empty element has end_l == end_r == start_r.
  struct Elem {
    size_t start_l, start_r, end_l, end_r;
    int32_t parent, child, next;
  };

  struct AttribSpot {
    bool found = false;
    size_t value_l = 0, value_r = 0;  // the value's text, without its quotes
    size_t insert_at = 0;             // where a new attribute may be inserted
  };

  bool Parse();
  bool Fail(std::string_view format, std::string_view name = {});
  size_t EndTagEnd(size_t lt, std::string_view name);
  std::string_view TagName(int32_t elem) const;
  std::string DataOf(int32_t elem) const;
  AttribSpot LocateAttrib(int32_t elem, std::string_view name) const;
  std::string AttribOf(int32_t elem, std::string_view name, bool* found) const;
  bool SetAttribOf(int32_t elem, std::string_view name, std::string_view value);
  int32_t AddNode(int32_t parent, int32_t prev, std::string_view name, std::string_view data, bool cdata);
  void OpenEmpty(int32_t elem);
  void Splice(size_t at, size_t remove, std::string_view insert, int32_t container, int32_t follower);
  void ShiftTree(int32_t root, size_t p, size_t shift);
  static void ShiftElem(Elem& e, size_t p, size_t shift);
  static uint64_t NextRevision();
  int32_t LastChild(int32_t parent) const;
  int32_t PrevSibling(int32_t elem) const;
  int Depth(int32_t elem) const;

  std::string text_;
  std::vector<Elem> elems_{Elem{0, 0, 0, 0, 0, 0, 0}};
  std::string error_;
  int32_t parent_ = 0;
  int32_t pos_ = 0;
  int32_t child_ = 0;
  // The element added last, when it is the last child of its parent: lets
  // LastChild answer at once for a run of appends.
  int32_t last_added_ = 0;
  uint64_t revision_ = NextRevision();
};

}  // namespace nimbo
