// The XML tree and its builder.
//
// CKXmlTreeNode: one element. The node is itself the list of its attributes
// (name/value pairs in document order, duplicates allowed) and owns its
// children. CKXmlTree: a node that is the root of a document plus a cursor,
// the current node, on which nearly every tree operation acts.
// CKXmlParserDOM: fills a tree from the parser's events and writes it back.
//
// Two name rules are kept apart on purpose: Child()/SetChildAsCurrentNode()
// upper-case the name asked for and compare it exactly with the stored one
// (trees read with tag upper-casing on); GetChild()/GetChildValue() compare
// ignoring case. Rendering never escapes anything: callers escape.
#ifndef KELVOR_KXML_H
#define KELVOR_KXML_H

#include <base/classes/list/KPtrListOwned.h>
#include <base/tools/KDefs.h>
#include <base/tools/KListParamValue.h>
#include <base/tools/KString.h>
#include <base/tools/KXmlParser.h>

#include <cstddef>

class CKXmlTreeNode;
class CKXmlNodePool;  // the builder's node store (src/KXml)
typedef CKPtrListOwned<CKXmlTreeNode> CKXmlTreeNodeList;

// ---------------------------------------------------------------- CKXmlTreeNode
class KELVOR_API CKXmlTreeNode : public CKListParamValue {
public:
  CKXmlTreeNode();
  CKXmlTreeNode(const char* szName, const char* szValue = nullptr);
  // Shares the two texts' blocks instead of copying them.
  CKXmlTreeNode(const CKString& strName, const CKString& strValue);
  // Copies the attributes, name, value and the whole subtree (the copy's
  // father is null).
  CKXmlTreeNode(const CKXmlTreeNode& n);
  CKXmlTreeNode& operator=(const CKXmlTreeNode&) = delete;
  // Deletes the subtree without recursing, so any depth is safe.
  ~CKXmlTreeNode() override;

  // A node comes from the heap, or from a builder's pool (the second form);
  // delete gives it back to where it came from, so callers own and delete
  // every node the same way.
  static void* operator new(size_t n);
  static void* operator new(size_t n, CKXmlNodePool* pPool);
  static void operator delete(void* p);
  static void operator delete(void* p, CKXmlNodePool* pPool);

  using CKListParamValue::GetValue;
  CKString GetName() const { return m_strName; }
  CKString GetValue() const { return m_strValue; }
  const CKString& GetNameRef() const { return m_strName; }
  const CKString& GetValueRef() const { return m_strValue; }
  void SetName(const char* szName) { m_strName = szName; }
  void SetValue(const char* szValue) { m_strValue = szValue; }
  CKXmlTreeNode* GetFather() const { return m_pFather; }

  int GetParamCount() const { return Count(); }
  CKString GetParamName(int i) const;
  CKString GetParamValue(int i) const;
  // By name, ignoring case; empty when absent.
  CKString GetParamValue(const char* szName) const;

  int GetChildrenCount() const { return m_Children.Count(); }
  CKXmlTreeNode* GetChildAt(int i) const { return m_Children.Get(i); }
  // Empty for an index without a child.
  CKString GetChildName(int i) const;
  CKString GetChildValue(int i) const;
  // "A/B/C" one level per element, names ignoring case; null when a level
  // is missing or the path is empty.
  CKXmlTreeNode* GetChild(const char* szPath) const;
  CKString GetChildValue(const char* szPath) const;
  // Whether p is a child (bRec: a descendant) of this node.
  int Find(CKXmlTreeNode* p, int bRec) const;

  // Appends p, which this node now owns, and becomes its father.
  CKXmlTreeNode* AddChildNode(CKXmlTreeNode* p);
  int RemoveChildAt(int i);
  void RemoveAllChildNodes();

  int m_nData;  // free integer for the owner, copied with the node

protected:
  void SmallSteps();
  // Deletes the children, leaving the array (count 0) in place.
  void FreeChildren();

  CKXmlTreeNodeList m_Children;
  CKXmlTreeNode* m_pFather;
  CKString m_strName;
  CKString m_strValue;

  friend class CKXmlTree;
  friend class CKXmlParserDOM;
};

// ---------------------------------------------------------------- CKXmlTree
class KELVOR_API CKXmlTree : public CKXmlTreeNode {
public:
  CKXmlTree();
  // A deep copy whose cursor is on the node matching the source's.
  CKXmlTree(const CKXmlTree& t);
  CKXmlTree& operator=(const CKXmlTree&) = delete;
  ~CKXmlTree() override;

  CKXmlTreeNode* GetCurrentNode() const { return m_pCurrent; }
  // Moves the cursor to p, which is not checked to be in this tree.
  int SetAsCurrentNode(CKXmlTreeNode* p);
  int SetRootAsCurrentNode();
  // 0, cursor unchanged, at the root.
  int SetFatherAsCurrentNode();
  int SetChildAsCurrentNode(int i);
  // Upper-case rule (see the file comment).
  int SetChildAsCurrentNode(const char* szName);
  // "A/B" from the current node, "ROOT/A/B" from the root; on a missing
  // level, 0 with the cursor where the walk stopped.
  int SetNewCurrentNode(const char* szPath);
  CKXmlTreeNode* Child(const char* szName) const;

  int GetChildrenCount() const { return m_pCurrent->m_Children.Count(); }
  CKString GetChildName(int i) const;
  CKString GetChildValue(int i) const;
  // Ignoring case; a null or empty name matches the first unnamed child.
  CKString GetChildValue(const char* szName) const;

  CKXmlTreeNode* AddChild();
  CKXmlTreeNode* AddChild(const char* szName);
  CKXmlTreeNode* AddChild(const char* szName, const char* szValue);
  int RemoveChild(int i);
  void RemoveAllChildren();

  CKString GetName() const { return m_pCurrent->m_strName; }
  CKString GetValue() const { return m_pCurrent->m_strValue; }
  void SetName(const char* szName) { m_pCurrent->m_strName = szName; }
  void SetValue(const char* szValue) { m_pCurrent->m_strValue = szValue; }

  int GetParamCount() const { return m_pCurrent->Count(); }
  CKString GetParam(int i) const { return m_pCurrent->CKListParamValue::GetParam(i); }
  CKString GetValueOfParam(int i) const { return m_pCurrent->CKListParamValue::GetValue(i); }
  CKString GetValueOfParam(const char* szName) const;
  void AddParamValue(const char* szName, const char* szValue);
  // Appends every pair of pList to the current node's attributes.
  void SetParamValue(CKListParamValue* pList);

  // Cursor to the root, which loses its children, attributes, name and value.
  void Init();
  // The current node and its subtree as XML text: a line break before each
  // start tag and after each end tag, nothing escaped.
  CKString GetXmlString() const;
  // Appends to s what GetXmlString() returns, without a copy of the text.
  void AppendXmlString(CKString& s) const;
  // An indented description of the subtree for debugging, each line
  // starting with szPrefix.
  CKString GetStringDescription(const char* szPrefix) const;

protected:
  CKXmlTreeNode* m_pCurrent;

  friend class CKXmlParserDOM;
};

// ---------------------------------------------------------------- CKXmlParserDOM
class KELVOR_API CKXmlParserDOM : public CKXmlParser {
public:
  CKXmlParserDOM();
  ~CKXmlParserDOM() override;

  CKXmlTree* GetTree() { return &m_Tree; }
  // The declaration and the first top-level element only.
  CKString GetXmlString();
  CKString GetStringDescription() { return m_Tree.GetStringDescription(""); }
  // Empties the tree and resets the parser for the next document.
  void InitDOM();

  int OnStart() override;
  int OnEnd() override;
  int OnStartTag(const char* szName, CKListParamValue* pAttributes) override;
  int OnEndTag(const char* szName) override;
  int OnValue(const char* szText) override;
  int OnText(const char* szText) override;
  int OnProcInstr(const char* szName, CKListParamValue* pAttributes) override;
  int OnError() override;

protected:
  CKXmlTree m_Tree;

private:
  struct TextCache;
  // The n bytes at sz (sz[n] is 0) as a string that shares its block with
  // an earlier equal short text.
  CKString Intern(const char* sz, unsigned n);
  CKString Intern(const CKString& s) { return Intern(s.GetString(), s.GetLength()); }
  TextCache* m_pCache;     // made on first use
  CKXmlNodePool* m_pPool;  // the parsed nodes; made on first use
};

#endif  // KELVOR_KXML_H
