// CKXmlParser: the library's own XML 1.0 event parser.
//
// One pass over the caller's bytes (never copied whole): names, attribute
// values and text are decoded into reusable buffers and handed to the
// virtual On* handlers, which return TRUE to let the parse go on. Text is
// 8-bit: a UTF-8 document (declared so, or undeclared) is converted to
// ISO-8859-1, a character above U+00FF (from the bytes or a character
// reference) becomes '?'; a document in any single-byte encoding passes its
// bytes through unchanged. See docs/design.md ("XML parser").
//
// Tolerated on purpose, because the tree writes text without escaping: a
// lone '&' and a '<' that cannot start markup are text; a document may hold
// several top-level elements. Everything else that is not well-formed stops
// the parse: OnError, an error code and a text naming the line and column.
#ifndef KELVOR_KXMLPARSER_H
#define KELVOR_KXMLPARSER_H

#include <base/tools/KDefs.h>
#include <base/tools/KListParamValue.h>
#include <base/tools/KString.h>

// Error codes of GetErrorCode().
enum {
  KXML_OK = 0,
  KXML_ERR_NO_INPUT,         // nothing to parse (no text set, unreadable file)
  KXML_ERR_SYNTAX,           // markup that breaks the grammar
  KXML_ERR_CHAR,             // a byte or character not allowed in XML
  KXML_ERR_ENCODING,         // malformed UTF-8, or an encoding the parser cannot read
  KXML_ERR_TAG_MISMATCH,     // an end tag that does not close the open element
  KXML_ERR_UNCLOSED,         // the input ends inside an element or markup
  KXML_ERR_ENTITY,           // undeclared, recursive or unbalanced entity
  KXML_ERR_DEPTH,            // nesting deeper than the limit
  KXML_ERR_LIMIT,            // entity expansion beyond the limit
  KXML_ERR_NO_ROOT,          // no element at all
  KXML_ERR_ABORTED           // a handler returned FALSE
};

class KELVOR_API CKXmlParser {
public:
  CKXmlParser();
  CKXmlParser(const CKXmlParser&) = delete;
  CKXmlParser& operator=(const CKXmlParser&) = delete;
  virtual ~CKXmlParser();

  // The text the next Parse() reads (a CKString shares the caller's block).
  void SetString(const CKString& strText);
  void SetString(const char* szText, unsigned nLength);
  // Reads the file into the parser's text; FALSE (logged) when it cannot.
  int SetFile(const char* szFile);

  // Parses the text set; TRUE when the document is well-formed (within the
  // tolerances) and no handler stopped it.
  int Parse();
  int Parse(const char* szText);
  int Parse(const char* pText, unsigned nLength);
  int ParseFile(const char* szFile);

  // Element names are upper-cased (ASCII) before OnStartTag/OnEndTag; on by
  // default. Attribute names and texts are never changed.
  void SetTagUpCase(int bUpCase) { m_bTagUpCase = bUpCase; }
  int GetTagUpCase() const { return m_bTagUpCase; }
  // Layout is dropped unless this is on (off by default): text made only of
  // blanks between two pieces of markup, and the one line break the tree
  // writes before a start tag and after an end tag. With it on, every
  // character of the content is reported.
  void SetKeepBlankText(int bKeep) { m_bKeepBlank = bKeep; }
  // Deepest element nesting accepted (default 10000).
  void SetMaxDepth(int nDepth) { m_nMaxDepth = nDepth > 0 ? nDepth : 1; }

  int GetErrorCode() const { return m_nError; }
  // "line L, column C: what"; empty after a successful parse.
  CKString GetErrorText() const { return m_strError; }
  int GetErrorLine() const { return m_nErrorLine; }
  int GetErrorColumn() const { return m_nErrorColumn; }
  // The notations declared in the DOCTYPE's internal subset, in order (first
  // declaration of each name), readable during and after the parse; an
  // identifier the declaration does not give is empty. FALSE for a bad index.
  int GetNotationCount() const;
  int GetNotation(int i, CKString& strName, CKString& strPublicId, CKString& strSystemId) const;
  // Data of the processing instruction being reported (inside OnProcInstr).
  const char* GetProcInstrData() const;

  // Events, in document order; return TRUE to go on.
  virtual int OnStart();
  virtual int OnEnd();
  virtual int OnStartTag(const char* szName, CKListParamValue* pAttributes);
  virtual int OnEndTag(const char* szName);
  virtual int OnText(const char* szText);
  // Not sent by the parser itself: a whole value for handlers fed by hand.
  virtual int OnValue(const char* szText);
  // The XML declaration and every processing instruction: the target and its
  // data read as name="value" pairs (empty when the data is not in that form).
  virtual int OnProcInstr(const char* szName, CKListParamValue* pAttributes);
  virtual int OnError();

protected:
  // Back to the state of a fresh parser (the text set stays).
  void ResetParser();

private:
  struct Impl;
  friend struct Impl;
  CKString m_strText;
  const char* m_pText;
  unsigned m_nLength;
  int m_bTagUpCase;
  int m_bKeepBlank;
  int m_nMaxDepth;
  int m_nError;
  int m_nErrorLine;
  int m_nErrorColumn;
  CKString m_strError;
  Impl* m_pImpl;
};

#endif  // KELVOR_KXMLPARSER_H
