// XmlDocument: parsing and its errors, limits, navigation, reading, writing.
#include "package/xml_document.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace nimbo {
namespace {

// Everything navigation can see: names, data and attributes, with nesting.
std::string Dump(XmlDocument& doc) {
  std::string seen;
  doc.ResetPos();
  while (true) {
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

// Positions kept by edits must equal those of parsing the edited text.
void ExpectSameAsReparsed(XmlDocument& doc) {
  XmlDocument reparsed;
  ASSERT_TRUE(reparsed.SetDoc(doc.GetDoc())) << reparsed.GetError() << "\n" << doc.GetDoc();
  EXPECT_EQ(Dump(doc), Dump(reparsed)) << doc.GetDoc();
}

std::string Nested(int depth) {
  std::string text;
  for (int i = 0; i < depth; ++i) text += "<e>";
  for (int i = 0; i < depth; ++i) text += "</e>";
  return text;
}

// --- Parsing ----------------------------------------------------------------

TEST(XmlParse, AcceptsOrFailsWithTheDocumentedText) {
  const struct {
    const char* text;
    const char* error;  // "" for success
  } kCases[] = {
      {"<a/>", ""},
      {"<a x='1' />", ""},
      {"< a x = \"1\" ></ a >", ""},
      {"<?xml version=\"1.0\"?>\r\n<!DOCTYPE a [<!ENTITY e \"]>\">]>\r\n<!-- <b> -->\r\n<a/>", ""},
      {"<a><![CDATA[</b>]]><?pi <c>?></a>", ""},
      {"<a x=\">\"></a>", ""},
      {"<a/><b/>", ""},
      {"<a/></x><b", ""},  // a stray end tag ends the top level
      {"", "Element tag not found"},
      {"plain text", "Element tag not found"},
      {"<!-- only a comment -->", "Element tag not found"},
      {"</a>", "Element tag not found"},
      {"<\"a\">", "Tag starts with quote"},
      {"<a><!-- open", "Invalid node"},
      {"<?pi", "Invalid node"},
      {"<![CDATA[x]>", "Invalid node"},
      {"<!DOCTYPE a [ >", "Invalid node"},
      {"<a", "End of tag not found"},
      {"<a x=\"/>", "End of tag not found"},
      {"<a><", "Abrupt end within tag"},
      {"<a>< \r\n\t", "Abrupt end within tag"},
      {"<a>text", "End tag of a element not found"},
      {"<a><b/>", "End tag of a element not found"},
      {"<a><b></a>", "End tag does not correspond to b"},
      {"<a></\"a\">", "End tag does not correspond to a"},
      {"<a></a", "End tag not completed for element a"},
      {"<a></", "End tag not completed for element a"},
  };
  for (const auto& c : kCases) {
    XmlDocument doc;
    EXPECT_EQ(doc.SetDoc(c.text), *c.error == '\0') << c.text;
    EXPECT_EQ(doc.GetError(), c.error) << c.text;
    if (*c.error) {  // a failure leaves an empty document
      EXPECT_EQ(doc.GetDoc(), "");
      EXPECT_FALSE(doc.FindElem()) << c.text;
    }
  }
}

TEST(XmlParse, SelfClosedElementIsOneEmptyElement) {
  XmlDocument doc;
  ASSERT_TRUE(doc.SetDoc("<a/>"));
  EXPECT_TRUE(doc.FindElem("a"));
  EXPECT_EQ(doc.GetData(), "");
  EXPECT_FALSE(doc.FindChildElem());
  EXPECT_FALSE(doc.FindElem());
}

TEST(XmlParse, SuccessClearsTheLastError) {
  XmlDocument doc;
  EXPECT_FALSE(doc.SetDoc("<a>"));
  EXPECT_TRUE(doc.SetDoc("<a/>"));
  EXPECT_EQ(doc.GetError(), "");
}

TEST(XmlParse, NestingIsLimited) {
  XmlDocument doc;
  EXPECT_TRUE(doc.SetDoc(Nested(XmlDocument::kMaxDepth)));
  EXPECT_FALSE(doc.SetDoc(Nested(XmlDocument::kMaxDepth + 1)));
  EXPECT_EQ(doc.GetError(), "Nesting too deep");
  EXPECT_FALSE(doc.SetDoc(Nested(200000)));  // no recursion to overflow
  EXPECT_EQ(doc.GetError(), "Nesting too deep");
}

TEST(XmlParse, EveryPrefixOfAValidDocumentParsesOrFailsCleanly) {
  const std::string text =
      "<?xml version=\"1.0\"?>\n<!DOCTYPE s [<!ENTITY e 'x'>]>\n<s k='1'>\n<!-- note -->\n"
      "<c><d k=\"&lt;\">x &amp; y</d><e/><f><![CDATA[<]]></f></c>\n</s>\n";
  const std::set<std::string> kErrors = {"Element tag not found", "Tag starts with quote",
                                         "Invalid node", "End of tag not found",
                                         "Abrupt end within tag", "End tag of s element not found",
                                         "End tag of c element not found",
                                         "End tag of d element not found",
                                         "End tag of f element not found",
                                         "End tag not completed for element s",
                                         "End tag not completed for element c",
                                         "End tag not completed for element d",
                                         "End tag not completed for element f",
                                         "End tag does not correspond to s",
                                         "End tag does not correspond to c",
                                         "End tag does not correspond to d",
                                         "End tag does not correspond to f"};
  for (size_t length = 0; length <= text.size(); ++length) {
    XmlDocument doc;
    if (doc.SetDoc(text.substr(0, length))) {
      Dump(doc);
    } else {
      EXPECT_TRUE(kErrors.count(doc.GetError())) << length << ": " << doc.GetError();
    }
  }
  XmlDocument doc;
  EXPECT_TRUE(doc.SetDoc(text));
}

TEST(XmlParse, LargeInputsStayLinear) {
  std::string siblings = "<r>";
  for (int i = 0; i < 100000; ++i) siblings += "<d k='v'>x</d>";
  XmlDocument doc;
  ASSERT_TRUE(doc.SetDoc(siblings + "</r>"));
  int count = 0;
  for (doc.FindElem(); doc.FindChildElem("d"); ++count) doc.GetChildAttrib("k");
  EXPECT_EQ(count, 100000);
  EXPECT_FALSE(doc.SetDoc(siblings));  // fails at the end, after one pass
  EXPECT_EQ(doc.GetError(), "End tag of r element not found");
  EXPECT_FALSE(doc.SetDoc("<a x='" + std::string(300000, '>')));
  EXPECT_EQ(doc.GetError(), "End of tag not found");
}

// --- Navigation and reading -------------------------------------------------

TEST(XmlNavigate, FindsAmongSiblingsAfterThePosition) {
  XmlDocument doc;
  ASSERT_TRUE(doc.SetDoc("<r><a>1</a><b x='2'/><a>3</a></r><t/>"));
  ASSERT_TRUE(doc.FindChildElem("b"));  // finds the main element first
  EXPECT_EQ(doc.GetTagName(), "r");
  EXPECT_EQ(doc.GetChildAttrib("x"), "2");
  EXPECT_TRUE(doc.FindChildElem("a"));
  EXPECT_EQ(doc.GetChildData(), "3");
  EXPECT_FALSE(doc.FindChildElem("a"));
  EXPECT_EQ(doc.GetChildData(), "3");  // a failed find moves nothing
  doc.ResetChildPos();
  EXPECT_TRUE(doc.FindChildElem());
  EXPECT_EQ(doc.GetChildData(), "1");

  ASSERT_TRUE(doc.IntoElem());
  EXPECT_EQ(doc.GetTagName(), "a");
  EXPECT_TRUE(doc.FindElem("a"));
  EXPECT_EQ(doc.GetData(), "3");
  ASSERT_TRUE(doc.OutOfElem());
  EXPECT_EQ(doc.GetTagName(), "r");
  EXPECT_EQ(doc.GetChildData(), "3");  // the old main position is the child
  EXPECT_FALSE(doc.OutOfElem());
  EXPECT_TRUE(doc.FindElem("t"));
  doc.ResetPos();
  EXPECT_TRUE(doc.FindElem("r"));
}

TEST(XmlRead, DataDecodesTheFiveEntitiesOnly) {
  const struct {
    const char* text;
    const char* data;
  } kCases[] = {
      {"<a>x &lt; y &amp;&amp; z &gt; &apos;q&apos; &quot;</a>", "x < y && z > 'q' \""},
      {"<a>&unknown; &#65; &amp &lt</a>", "&unknown; &#65; &amp &lt"},
      {"<a>&amp;lt;</a>", "&lt;"},
      {"<a><![CDATA[<b>&amp;]]></a>", "<b>&amp;"},
      {"<a>x<!-- c -->y<?p?>z<![CDATA[]]]]><![CDATA[>]]></a>", "xyz]]>"},
      {"<a> \r\n </a>", " \r\n "},
      {"<a><b/>text</a>", ""},  // an element with children has no data
  };
  for (const auto& c : kCases) {
    XmlDocument doc;
    ASSERT_TRUE(doc.SetDoc(c.text)) << c.text;
    doc.FindElem();
    EXPECT_EQ(doc.GetData(), c.data) << c.text;
  }
}

TEST(XmlRead, AttributesAreQuotedAndDecoded) {
  XmlDocument doc;
  ASSERT_TRUE(doc.SetDoc("<a x=\"1\" y='two' z=\"&lt;&quot;&apos;\" w=3 v=\"\" x=\"dup\"/>"));
  doc.FindElem();
  bool found = false;
  EXPECT_EQ(doc.GetAttrib("x", &found), "1");
  EXPECT_TRUE(found);
  EXPECT_EQ(doc.GetAttrib("y"), "two");
  EXPECT_EQ(doc.GetAttrib("z"), "<\"'");
  EXPECT_EQ(doc.GetAttrib("v", &found), "");
  EXPECT_TRUE(found);
  EXPECT_EQ(doc.GetAttrib("w", &found), "");  // unquoted values do not count
  EXPECT_FALSE(found);
  EXPECT_EQ(doc.GetAttrib("missing", &found), "");
  EXPECT_FALSE(found);
}

// --- Writing ----------------------------------------------------------------

TEST(XmlWrite, ElementsHaveTheDocumentedText) {
  XmlDocument doc;
  ASSERT_TRUE(doc.AddElem("r"));
  EXPECT_EQ(doc.GetDoc(), "<r/>\r\n");
  ASSERT_TRUE(doc.AddChildElem("a", "1"));
  ASSERT_TRUE(doc.SetChildAttrib("k", "v"));
  ASSERT_TRUE(doc.AddChildElem("b"));
  EXPECT_EQ(doc.GetDoc(), "<r>\r\n<a k=\"v\">1</a>\r\n<b/>\r\n</r>\r\n");
  ASSERT_TRUE(doc.InsertChildElem("first"));
  ASSERT_TRUE(doc.AddElem("s", "x"));
  EXPECT_EQ(doc.GetDoc(), "<r>\r\n<a k=\"v\">1</a>\r\n<first/>\r\n<b/>\r\n</r>\r\n<s>x</s>\r\n");
  doc.ResetPos();
  doc.FindElem();
  doc.ResetChildPos();
  ASSERT_TRUE(doc.InsertChildElem("zero"));
  EXPECT_TRUE(doc.GetDoc().starts_with("<r>\r\n<zero/>\r\n<a"));
  ExpectSameAsReparsed(doc);
}

TEST(XmlWrite, EncodesDataAndAttributes) {
  EXPECT_EQ(XmlDocument::Encode("a&b<c>'\"", false), "a&amp;b&lt;c&gt;'\"");
  EXPECT_EQ(XmlDocument::Encode("a&b<c>'\"", true), "a&amp;b&lt;c&gt;&apos;&quot;");
  const std::string kTexts[] = {"x & y < z", "&unknown; &amp;", "both ' and \" quotes", "]]>",
                                " \r\n\t"};
  for (const std::string& text : kTexts) {
    XmlDocument doc;
    ASSERT_TRUE(doc.AddElem("r", text));
    ASSERT_TRUE(doc.SetAttrib("k", text));
    ASSERT_TRUE(doc.AddChildElem("c", text, /*cdata=*/true));
    XmlDocument reparsed;
    ASSERT_TRUE(reparsed.SetDoc(doc.GetDoc())) << doc.GetDoc();
    reparsed.FindElem("r");
    EXPECT_EQ(reparsed.GetAttrib("k"), text);
    EXPECT_EQ(reparsed.GetChildData(), "");
    reparsed.FindChildElem("c");
    EXPECT_EQ(reparsed.GetChildData(), text);
  }
  XmlDocument doc;
  doc.AddElem("a", "&unknown;");
  EXPECT_EQ(doc.GetDoc(), "<a>&amp;unknown;</a>\r\n");
  EXPECT_EQ(doc.GetData(), "&unknown;");
}

TEST(XmlWrite, AttributesAreReplacedOrAdded) {
  XmlDocument doc;
  ASSERT_TRUE(doc.SetDoc("<a k='old' z=\"1\" />"));
  doc.FindElem();
  ASSERT_TRUE(doc.SetAttrib("k", "a much longer value"));
  ASSERT_TRUE(doc.SetAttrib("n", "new"));
  ASSERT_TRUE(doc.SetAttrib("z", ""));
  EXPECT_EQ(doc.GetDoc(), "<a k=\"a much longer value\" z=\"\" n=\"new\" />");
  ExpectSameAsReparsed(doc);
  ASSERT_TRUE(doc.SetDoc("<a k= b=\"1\"/>"));  // a dangling '=' must not take the new value
  doc.FindElem();
  ASSERT_TRUE(doc.SetAttrib("n", "v"));
  EXPECT_EQ(doc.GetAttrib("n"), "v");
}

TEST(XmlWrite, EditsKeepTheIndexOfParsedDocuments) {
  const char* kDocs[] = {
      "<r/>",
      "<r k='1'/>",
      "<r></r>",
      "<r>text</r>",
      "<?xml?><r>\n  <!-- c -->\n  <a k=\"x\">1</a>\n  <b/>\n</r>\n<after/>",
      "<p/><r><a/><a><b/></a></r></x>junk",
  };
  for (const char* text : kDocs) {
    XmlDocument doc;
    ASSERT_TRUE(doc.SetDoc(text)) << text;
    doc.FindElem("r");
    ASSERT_TRUE(doc.AddChildElem("c1", "v"));
    ASSERT_TRUE(doc.SetChildAttrib("k", "<&>"));
    ASSERT_TRUE(doc.InsertChildElem("c0"));
    ASSERT_TRUE(doc.SetAttrib("k", "r"));
    ASSERT_TRUE(doc.IntoElem());
    ASSERT_TRUE(doc.AddChildElem("g"));  // into the empty c0
    ASSERT_TRUE(doc.SetAttrib("k", "c0"));
    doc.ResetPos();
    ASSERT_TRUE(doc.AddElem("top"));
    ExpectSameAsReparsed(doc);
  }
}

TEST(XmlWrite, RejectsWhatWouldNotParseBack) {
  XmlDocument doc;
  EXPECT_FALSE(doc.AddChildElem("a"));  // no main position
  for (const char* name : {"", "a b", "a/b", "a>", "a\"", "'a", "a=b", "?a", "!a"}) {
    EXPECT_FALSE(doc.AddElem(name)) << name;
  }
  ASSERT_TRUE(doc.AddElem("r"));
  EXPECT_FALSE(doc.SetAttrib("a b", "v"));
  EXPECT_EQ(doc.GetDoc(), "<r/>\r\n");
  for (int depth = 1; depth < XmlDocument::kMaxDepth; ++depth) {
    ASSERT_TRUE(doc.AddChildElem("e"));
    ASSERT_TRUE(doc.IntoElem());
  }
  EXPECT_FALSE(doc.AddChildElem("e"));  // would nest too deep to parse back
  ExpectSameAsReparsed(doc);
}

}  // namespace
}  // namespace nimbo
