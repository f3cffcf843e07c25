#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <base/tools/KXml.h>

#include "KTestLog.h"

namespace {

std::string S(const CKString& s) { return std::string(s.GetString(), s.GetLength()); }

// ROOT > A(x=1, "t") > B("b"), C ; ROOT > lower("l")
void Build(CKXmlTree& t) {
  t.AddChild("A", "t");
  t.SetChildAsCurrentNode(0);
  t.AddParamValue("x", "1");
  t.AddChild("B", "b");
  t.AddChild("C");
  t.SetRootAsCurrentNode();
  t.AddChild("lower", "l");
}

}  // namespace

TEST(KXmlTree, RenderingByteForByte) {
  CKXmlTree t;
  t.AddChild("A", "t");
  t.SetChildAsCurrentNode(0);
  t.AddParamValue("x", "1");
  t.SetRootAsCurrentNode();
  EXPECT_EQ(S(t.GetXmlString()), "\r\n<A x=\"1\" >t</A>\r\n");
  // Nothing is escaped; attributes keep their order and duplicates.
  t.SetChildAsCurrentNode(0);
  t.AddParamValue("x", "a<b");
  t.SetValue("1 < 2 & \"q\"");
  t.AddChild("E");
  EXPECT_EQ(S(t.GetXmlString()),
            "\r\n<A x=\"1\"  x=\"a<b\" >1 < 2 & \"q\"\r\n<E></E>\r\n</A>\r\n");
  EXPECT_EQ(S(t.GetName()), "A");  // the cursor is back where it was
  t.SetRootAsCurrentNode();
  EXPECT_EQ(S(t.GetStringDescription(">")),
            ">Name: \r\n>---Name: A\r\n>---Value: '1 < 2 & \"q\"'\r\n>------Name: E\r\n");
  t.SetValue("   ");  // a blank value has no Value line
  t.SetChildAsCurrentNode(0);
  t.SetValue(" v");
  t.SetRootAsCurrentNode();
  EXPECT_EQ(S(t.GetStringDescription("")), "Name: \r\n---Name: A\r\n---Value: ' v'\r\n------Name: E\r\n");
}

TEST(KXmlTree, NameRulesAndCursor) {
  CKXmlTree t;
  Build(t);
  // Child/SetChildAsCurrentNode: upper-cased request, exact compare.
  EXPECT_NE(t.Child("a"), nullptr);
  EXPECT_EQ(t.Child("lower"), nullptr);
  EXPECT_EQ(t.Child("LOWER"), nullptr);
  EXPECT_FALSE(t.SetChildAsCurrentNode("lower"));
  // GetChildValue and the node's GetChild: ignoring case, equal length.
  EXPECT_EQ(S(t.GetChildValue("LOWER")), "l");
  EXPECT_EQ(S(t.GetChildValue("a")), "t");
  EXPECT_EQ(S(t.GetChildValue("A2")), "");
  EXPECT_EQ(S(t.GetChildValue("lowe")), "");
  EXPECT_EQ(S(t.CKXmlTreeNode::GetChildValue("a/b")), "b");
  EXPECT_EQ(t.GetChild("a/x"), nullptr);
  EXPECT_EQ(t.GetChild(""), nullptr);
  EXPECT_EQ(S(t.GetChild("Lower")->GetValue()), "l");

  EXPECT_TRUE(t.SetNewCurrentNode("A/B"));
  EXPECT_EQ(S(t.GetName()), "B");
  EXPECT_TRUE(t.SetNewCurrentNode("ROOT/A/C"));
  EXPECT_EQ(S(t.GetName()), "C");
  EXPECT_FALSE(t.SetNewCurrentNode("root/A"));  // "root" is a child name here
  EXPECT_EQ(S(t.GetName()), "C");
  EXPECT_FALSE(t.SetNewCurrentNode("ROOT/A/Z"));
  EXPECT_EQ(S(t.GetName()), "A");  // stays where the walk stopped
  EXPECT_TRUE(t.SetNewCurrentNode(""));
  EXPECT_EQ(S(t.GetName()), "A");

  EXPECT_TRUE(t.SetFatherAsCurrentNode());
  EXPECT_FALSE(t.SetFatherAsCurrentNode());  // the root has no father
  EXPECT_EQ(t.GetCurrentNode(), &t);
  EXPECT_FALSE(t.SetChildAsCurrentNode(2));
  EXPECT_TRUE(t.SetChildAsCurrentNode(1));
  EXPECT_EQ(S(t.GetName()), "lower");
  t.SetRootAsCurrentNode();
  EXPECT_EQ(t.GetChildrenCount(), 2);
  EXPECT_EQ(S(t.GetChildName(1)), "lower");
  EXPECT_EQ(S(t.CKXmlTreeNode::GetChildName(5)), "");
  t.SetChildAsCurrentNode(0);
  EXPECT_EQ(S(t.GetValueOfParam("X")), "1");
  EXPECT_EQ(S(t.GetValueOfParam(0)), "1");
  EXPECT_EQ(S(t.GetParam(0)), "x");
  EXPECT_EQ(S(t.GetCurrentNode()->GetParamValue("X")), "1");
  EXPECT_EQ(S(t.GetCurrentNode()->GetParamName(3)), "");
  CKListParamValue more;
  more.AddValue("y", "2");
  more.AddValue("x", "3");
  t.SetParamValue(&more);
  EXPECT_EQ(S(t.GetCurrentNode()->ToString()), "x=1;y=2;x=3");
}

TEST(KXmlTree, OwnershipFindRemoveCopy) {
  CKTestLog log;
  CKXmlTree t;
  Build(t);
  CKXmlTreeNode* a = t.Child("A");
  CKXmlTreeNode* b = a->GetChild("B");
  EXPECT_TRUE(t.Find(a, FALSE));
  EXPECT_FALSE(t.Find(b, FALSE));
  EXPECT_TRUE(t.Find(b, TRUE));
  EXPECT_FALSE(a->Find(&t, TRUE));
  EXPECT_EQ(b->GetFather(), a);
  EXPECT_EQ(log.Count(), 0u);

  // A deep copy: its cursor follows the source's, and both live on alone.
  t.SetNewCurrentNode("A/C");
  {
    CKXmlTree copy(t);
    EXPECT_EQ(S(copy.GetName()), "C");
    EXPECT_NE(copy.GetCurrentNode(), t.GetCurrentNode());
    copy.SetRootAsCurrentNode();
    t.SetRootAsCurrentNode();
    EXPECT_EQ(S(copy.GetXmlString()), S(t.GetXmlString()));
    copy.SetNewCurrentNode("A");
    copy.SetValue("changed");
  }
  EXPECT_EQ(S(t.GetChildValue("A")), "t");

  t.SetNewCurrentNode("ROOT/A/B");
  t.SetRootAsCurrentNode();
  EXPECT_FALSE(t.RemoveChild(-1));
  EXPECT_FALSE(t.RemoveChild(2));
  t.SetNewCurrentNode("A/B");
  t.SetFatherAsCurrentNode();
  t.SetFatherAsCurrentNode();
  EXPECT_TRUE(t.RemoveChild(0));  // A and its subtree
  EXPECT_EQ(t.GetChildrenCount(), 1);
  EXPECT_EQ(S(t.GetChildName(0)), "lower");

  // Deep trees are built, copied and freed without recursion.
  CKXmlTree deep;
  for (int i = 0; i < 200000; ++i) deep.SetAsCurrentNode(deep.AddChild("N"));
  EXPECT_EQ(deep.GetCurrentNode()->GetFather()->GetName(), "N");
  CKXmlTree deepCopy(deep);
  EXPECT_EQ(S(deepCopy.GetName()), "N");
  deep.SetRootAsCurrentNode();
  EXPECT_EQ(deep.GetXmlString().GetLength(), 200000u * 11);
  deep.Init();
  EXPECT_EQ(deep.GetChildrenCount(), 0);
  EXPECT_EQ(deep.GetCurrentNode(), &deep);
}

TEST(KXmlParserDOM, BuildsTreeAndWritesFirstElement) {
  CKXmlParserDOM dom;
  ASSERT_TRUE(dom.Parse("<?xml version=\"1.0\"?><doc a='1'>x<item n='2'>y</item>z</doc><other/>"));
  CKXmlTree* t = dom.GetTree();
  EXPECT_EQ(t->GetCurrentNode(), t);
  EXPECT_EQ(t->GetChildrenCount(), 2);  // both top-level elements are kept
  EXPECT_TRUE(t->SetNewCurrentNode("DOC/ITEM"));
  EXPECT_EQ(S(t->GetValue()), "y");
  EXPECT_EQ(S(t->GetValueOfParam("n")), "2");
  EXPECT_EQ(S(dom.GetXmlString()),
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\r\n"
            "\r\n<DOC a=\"1\" >xz\r\n<ITEM n=\"2\" >y</ITEM>\r\n</DOC>\r\n");
  EXPECT_EQ(S(t->GetName()), "DOC");  // the cursor stays on the first element
  EXPECT_EQ(S(dom.GetStringDescription()), "Name: DOC\r\nValue: 'xz'\r\n---Name: ITEM\r\n---Value: 'y'\r\n");

  // The written text reads back to the same first element.
  const CKString strOut = dom.GetXmlString();
  CKXmlParserDOM again;
  ASSERT_TRUE(again.Parse(strOut));
  EXPECT_EQ(S(again.GetXmlString()), S(strOut));

  // A new parse replaces the tree; a failed one keeps what was read.
  EXPECT_FALSE(dom.Parse("<a><b>text</b><c>"));
  EXPECT_EQ(t->GetCurrentNode(), t);
  EXPECT_EQ(S(t->CKXmlTreeNode::GetChildValue("A/B")), "text");
  dom.InitDOM();
  EXPECT_EQ(dom.GetTree()->GetChildrenCount(), 0);
  EXPECT_EQ(dom.GetErrorCode(), KXML_OK);

  // Tags as written when upper-casing is off.
  CKXmlParserDOM keep;
  keep.SetTagUpCase(FALSE);
  ASSERT_TRUE(keep.Parse("<Obj><name>v</name></Obj>"));
  EXPECT_EQ(keep.GetTree()->Child("obj"), nullptr);
  EXPECT_EQ(S(keep.GetTree()->GetChildValue("obj")), "");
  EXPECT_EQ(S(keep.GetTree()->CKXmlTreeNode::GetChildValue("OBJ/NAME")), "v");
}

TEST(KXmlParserDOM, ParsedAndCallersNodesMix) {
  // Parsed nodes come from the builder's store, a caller's from the heap:
  // both are renamed, removed, replaced by the next parse and copied alike,
  // and texts shared between parsed nodes change one node at a time.
  const std::string want =
      "\r\n<R>\r\n<X k=\"v\" >u</X>\r\n\r\n<E k=\"v\" >t</E>\r\n\r\n<H>h\r\n<D>d</D>\r\n</H>\r\n</R>\r\n";
  std::unique_ptr<CKXmlTree> copy;
  {
    CKXmlParserDOM dom;
    CKXmlTree* t = dom.GetTree();
    for (int round = 0; round < 2; ++round) {
      ASSERT_TRUE(dom.Parse("<r><e k='v'>t</e><e k='v'>t</e><e k='v'/></r>"));
      ASSERT_TRUE(t->SetNewCurrentNode("R/E"));
      t->SetName("X");
      t->SetValue("u");
      t->SetFatherAsCurrentNode();
      EXPECT_TRUE(t->RemoveChild(2));
      t->AddChild("H", "h")->AddChildNode(new CKXmlTreeNode("D", "d"));
      EXPECT_EQ(S(t->GetXmlString()), want);
    }
    copy.reset(new CKXmlTree(*t));
  }
  EXPECT_EQ(S(copy->GetXmlString()), want);
  EXPECT_EQ(S(copy->CKXmlTreeNode::GetChildValue("R/H/D")), "d");
}

TEST(KXmlParserDOM, SharedTextsAcrossParses) {
  // Texts of every length up to past the shared-text bound, most differing
  // only in their last byte, keep their own values through several parses.
  auto Value = [](int i) { return std::string((size_t)(i % 40), 'v') + char('a' + i % 26); };
  CKXmlParserDOM dom;
  for (int n : {300, 1000, 20}) {
    std::string s = "<big>";
    for (int i = 0; i < n; ++i) s += "<c n='" + Value(i) + "'>" + Value(i) + "</c>";
    ASSERT_TRUE(dom.Parse((s + "</big>").c_str()));
    const CKXmlTreeNode* pBig = dom.GetTree()->GetChildAt(0);
    ASSERT_EQ(pBig->GetChildrenCount(), n);
    for (int i = 0; i < n; ++i) {
      ASSERT_EQ(S(pBig->GetChildValue(i)), Value(i)) << i;
      ASSERT_EQ(S(pBig->GetChildAt(i)->GetParamValue("n")), Value(i)) << i;
    }
  }
}
