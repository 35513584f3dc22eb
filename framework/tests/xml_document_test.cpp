// XmlDocument: parsing and its errors, limits, navigation, reading, writing.
#include "framework/xml_document.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace nimbo {
namespace {

// What navigation sees: "<name|data|attribute k" per element, ">" per level left.
std::string Dump(XmlDocument& doc) {
  std::string seen;
  for (doc.ResetPos();;) {
    if (doc.FindElem()) {
      seen += "<" + doc.GetTagName() + "|" + doc.GetData() + "|" + doc.GetAttrib("k");
      doc.IntoElem();
    } else if (doc.OutOfElem()) {
      seen += ">";
    } else {
      return seen;
    }
  }
}

// The dump of the parsed text, or the parser's error text.
std::string Parsed(const std::string& text) {
  XmlDocument doc;
  if (doc.SetDoc(text)) return Dump(doc);
  EXPECT_EQ(doc.GetDoc() + Dump(doc), "") << "a failure leaves an empty document";
  return doc.GetError();
}

// Positions kept by edits must equal those of parsing the edited text.
void ExpectSameAsReparsed(XmlDocument& doc) { EXPECT_EQ(Dump(doc), Parsed(doc.GetDoc())) << doc.GetDoc(); }

TEST(XmlParse, ReadsOrFailsWithTheDocumentedText) {
  const struct {
    std::vector<std::string> texts;
    const char* expected;
  } kCases[] = {
      {{"< a k = \"1\" ></ a >"}, "<a||1>"},
      {{"<?xml version=\"1.0\"?>\r\n<!DOCTYPE a [<!ENTITY e \"]>\">]>\r\n<!-- <b> -->\r\n<a/>"}, "<a||>"},
      {{"<a/></x><b"}, "<a||>"},  // a stray end tag ends the top level
      {{"<!DOCTYPE a \"x>y<\"><a k='>'><![CDATA[</b>&amp;]]><?pi <c>?></a>"}, "<a|</b>&amp;|>>"},
      {{"<a>x &lt; &amp;&amp; &gt; &apos;q&apos; &quot;</a>"}, "<a|x < && > 'q' \"|>"},
      {{"<a>&unknown; &#65; &amp &amp;lt;</a>"}, "<a|&unknown; &#65; &amp &lt;|>"},
      {{"<a>x<!-- c -->y<![CDATA[]]]]><![CDATA[>]]></a>"}, "<a|xy]]>|>"},
      {{"<a> \r\n </a>"}, "<a| \r\n |>"},
      {{"<a><b k='&lt;&quot;&apos;'/>text</a>"}, "<a||<b||<\"'>>"},  // a parent has no data
      {{"<a k=v/><b k='1' k='2'/>"}, "<a||><b||1>"},                 // values are quoted; the first counts
      {{"", "plain text", "<!-- only a comment -->", "</a>"}, "Element tag not found"},
      {{"<\"a\">"}, "Tag starts with quote"},
      {{"<a><!-- open", "<?pi", "<![CDATA[x]>", "<!DOCTYPE a [ >"}, "Invalid node"},
      {{"<a", "<a x=\"/>"}, "End of tag not found"},
      {{"<a><", "<a>< \r\n\t"}, "Abrupt end within tag"},
      {{"<a>text", "<a><b/>"}, "End tag of a element not found"},
      {{"<a><b></a>"}, "End tag does not correspond to b"},
      {{"<a></\"a\">"}, "End tag does not correspond to a"},
      {{"<a></a", "<a></"}, "End tag not completed for element a"},
  };
  for (const auto& c : kCases) {
    for (const std::string& text : c.texts) EXPECT_EQ(Parsed(text), c.expected) << text;
  }
  XmlDocument doc;  // success clears the last error
  EXPECT_FALSE(doc.SetDoc("<a>"));
  EXPECT_TRUE(doc.SetDoc("<a/>") && doc.GetError().empty());
}

TEST(XmlParse, NestingIsLimitedAndLargeInputsStayLinear) {
  std::string open, close;  // nesting is checked without recursion
  for (int i = 0; i < 200000; ++i) open += "<e>", close += "</e>";
  auto nested = [&](size_t depth) { return open.substr(0, 3 * depth) + close.substr(0, 4 * depth); };
  EXPECT_EQ(Parsed(nested(XmlDocument::kMaxDepth)).substr(0, 4), "<e||");
  EXPECT_EQ(Parsed(nested(XmlDocument::kMaxDepth + 1)), "Nesting too deep");
  EXPECT_EQ(Parsed(open + close), "Nesting too deep");
  std::string siblings = "<r>";
  for (int i = 0; i < 100000; ++i) siblings += "<d k='v'>x</d>";
  XmlDocument doc;
  ASSERT_TRUE(doc.SetDoc(siblings + "</r>"));
  int count = 0;
  for (doc.FindElem(); doc.FindChildElem("d"); ++count) doc.GetChildAttrib("k");
  EXPECT_EQ(count, 100000);
  EXPECT_EQ(Parsed("<a x='" + std::string(300000, '>')), "End of tag not found");
}

TEST(XmlNavigate, FindsAmongSiblingsAfterThePosition) {
  XmlDocument doc;
  ASSERT_TRUE(doc.SetDoc("<r><a>1</a><b x='2' e=''/><a>3</a></r><t/>"));
  ASSERT_TRUE(doc.FindChildElem("b"));  // finds the main element first
  bool found[3] = {};
  EXPECT_EQ(doc.GetTagName() + doc.GetChildAttrib("x", &found[0]) + doc.GetChildAttrib("e", &found[1]) +
                doc.GetChildAttrib("no", &found[2]),
            "r2");
  EXPECT_TRUE(found[0] && found[1] && !found[2]);
  EXPECT_TRUE(doc.FindChildElem("a") && !doc.FindChildElem("a"));
  EXPECT_EQ(doc.GetChildData(), "3");  // a failed find moves nothing
  doc.ResetChildPos();
  ASSERT_TRUE(doc.FindChildElem() && doc.IntoElem());
  EXPECT_EQ(doc.GetData(), "1");
  EXPECT_TRUE(doc.FindElem("a"));
  EXPECT_EQ(doc.GetData(), "3");
  ASSERT_TRUE(doc.OutOfElem());
  EXPECT_EQ(doc.GetTagName() + doc.GetChildData(), "r3");  // the old main position is the child
  EXPECT_FALSE(doc.OutOfElem());
  EXPECT_TRUE(doc.FindElem("t"));
}

TEST(XmlWrite, ElementsHaveTheDocumentedText) {
  XmlDocument doc;
  EXPECT_FALSE(doc.AddChildElem("a"));  // no main position
  ASSERT_TRUE(doc.AddElem("r"));
  EXPECT_EQ(doc.GetDoc(), "<r/>\r\n");
  ASSERT_TRUE(doc.AddChildElem("a", "1") && doc.SetChildAttrib("k", "v") && doc.AddChildElem("b"));
  EXPECT_EQ(doc.GetDoc(), "<r>\r\n<a k=\"v\">1</a>\r\n<b/>\r\n</r>\r\n");
  ASSERT_TRUE(doc.InsertChildElem("before_b"));
  doc.ResetChildPos();
  ASSERT_TRUE(doc.InsertChildElem("first") && doc.AddElem("s", "x"));
  EXPECT_EQ(doc.GetDoc(), "<r>\r\n<first/>\r\n<a k=\"v\">1</a>\r\n<before_b/>\r\n<b/>\r\n</r>\r\n<s>x</s>\r\n");
  ExpectSameAsReparsed(doc);
}

TEST(XmlWrite, EncodedTextReadsBackUnchanged) {
  EXPECT_EQ(XmlDocument::Encode("a&b<c>'\"", false), "a&amp;b&lt;c&gt;'\"");
  EXPECT_EQ(XmlDocument::Encode("a&b<c>'\"", true), "a&amp;b&lt;c&gt;&apos;&quot;");
  for (const std::string text : {"x & y < z", "&unknown; &amp;", "both ' and \" quotes", "]]>", " \r\n"}) {
    XmlDocument doc;
    ASSERT_TRUE(doc.AddElem("r") && doc.SetAttrib("k", text));
    ASSERT_TRUE(doc.AddChildElem("d", text) && doc.AddChildElem("c", text, /*cdata=*/true));
    EXPECT_EQ(Parsed(doc.GetDoc()), "<r||" + text + "<d|" + text + "|><c|" + text + "|>>");
  }
  XmlDocument doc;
  doc.AddElem("a", "&unknown;");
  EXPECT_EQ(doc.GetDoc(), "<a>&amp;unknown;</a>\r\n");
}

TEST(XmlWrite, EditsKeepTheIndexOfParsedDocuments) {
  for (const char* text :
       {"<r/>", "<r k='a longer value' z=\"1\" />", "<r x= y='1'/>", "<r></r>", "<r>text</r>",
        "<?xml?><r>\n  <!-- c -->\n  <a k=\"x\">1</a>\n  <b/>\n</r>\n<after/>", "<p/><r><a/><a><b/></a></r></x>junk"}) {
    XmlDocument doc;
    ASSERT_TRUE(doc.SetDoc(text)) << text;
    doc.FindElem("r");
    ASSERT_TRUE(doc.AddChildElem("c1", "v") && doc.SetChildAttrib("k", "<&>") && doc.InsertChildElem("c0"));
    ASSERT_TRUE(doc.SetAttrib("k", "r") && doc.IntoElem());
    ASSERT_TRUE(doc.AddChildElem("g") && doc.SetAttrib("k", "c0") && doc.OutOfElem());  // g goes into the empty c0
    EXPECT_EQ(doc.GetAttrib("k"), "r");  // replaced, or added where no '=' can take it
    doc.ResetPos();
    ASSERT_TRUE(doc.AddElem("top"));
    ExpectSameAsReparsed(doc);
  }
}

TEST(XmlWrite, RefusesWhatWouldNotParseBack) {
  XmlDocument doc;
  for (const char* name : {"", "a b", "a/b", "a>", "a\"", "'a", "a=b", "?a", "!a"})
    EXPECT_FALSE(doc.AddElem(name)) << name;
  ASSERT_TRUE(doc.AddElem("r"));
  EXPECT_FALSE(doc.SetAttrib("a b", "v"));
  EXPECT_EQ(doc.GetDoc(), "<r/>\r\n");
  for (int depth = 1; depth < XmlDocument::kMaxDepth; ++depth) ASSERT_TRUE(doc.AddChildElem("e") && doc.IntoElem());
  EXPECT_FALSE(doc.AddChildElem("e"));  // would nest too deep to parse back
  ExpectSameAsReparsed(doc);
}

}  // namespace
}  // namespace nimbo
