#define KSRC_PATH "src/KXmlParser"

#include <base/tools/KXmlParser.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <base/tools/KDebug.h>
#include <base/tools/KException.h>
#include <base/tools/KStr.h>

#include "KXmlNames.h"

namespace {

// Byte classes. Text scanning stops only at bytes with a non-zero class.
enum : unsigned char { T_PLAIN = 0, T_SPECIAL = 1, T_HIGH = 2 };
// Name characters: 1 may start a name, 2 may only follow.
struct KXmlTables {
  unsigned char text[256];
  unsigned char attr[256];
  unsigned char name[256];
  KXmlTables() {
    for (int c = 0; c < 256; ++c) {
      const bool bCtl = c < 0x20 && c != '\t' && c != '\n';
      text[c] = c >= 0x80 ? T_HIGH : (bCtl || c == '<' || c == '&' || c == ']') ? T_SPECIAL : T_PLAIN;
      attr[c] = c >= 0x80 ? T_HIGH
                : (c < 0x20 || c == '&' || c == '"' || c == '\'' || c == '<') ? T_SPECIAL
                                                                   : T_PLAIN;
      const bool bStart = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':' ||
                          c >= 0x80;
      const bool bNext = (c >= '0' && c <= '9') || c == '-' || c == '.';
      name[c] = bStart ? 1 : bNext ? 2 : 0;
    }
  }
};
const KXmlTables g_tab;

// First byte from p whose class in tab is not plain (0), or pEnd. Four
// bytes a step: long runs cost a quarter of the branches, and the loop's
// speed no longer hangs on where the compiler happens to place it.
inline const char* SkipPlain(const char* p, const char* pEnd, const unsigned char* tab) {
  while (pEnd - p >= 4 && !(tab[(unsigned char)p[0]] | tab[(unsigned char)p[1]] | tab[(unsigned char)p[2]] |
                            tab[(unsigned char)p[3]]))
    p += 4;
  while (p < pEnd && !tab[(unsigned char)*p]) ++p;
  return p;
}

inline bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

inline bool IsXmlChar(unsigned long c) {
  return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
         (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

// Decodes one UTF-8 sequence at p; its length, or 0 when malformed
// (overlong forms, surrogates and values past U+10FFFF included).
inline int DecodeUtf8(const unsigned char* p, const unsigned char* pEnd, unsigned long& cp) {
  const unsigned c = p[0];
  int n;
  unsigned long v, vMin;
  if (c < 0x80) {
    cp = c;
    return 1;
  } else if (c >= 0xC2 && c <= 0xDF) {
    n = 2, v = c & 0x1F, vMin = 0x80;
  } else if (c >= 0xE0 && c <= 0xEF) {
    n = 3, v = c & 0x0F, vMin = 0x800;
  } else if (c >= 0xF0 && c <= 0xF4) {
    n = 4, v = c & 0x07, vMin = 0x10000;
  } else {
    return 0;
  }
  if (pEnd - p < n) return 0;
  for (int i = 1; i < n; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
    v = (v << 6) | (p[i] & 0x3F);
  }
  if (v < vMin || v > 0x10FFFF || (v >= 0xD800 && v <= 0xDFFF)) return 0;
  cp = v;
  return n;
}

// Growable byte buffer kept across events: no allocation once warm.
class Buf {
public:
  Buf() : m_p(nullptr), m_n(0), m_nCap(0) {}
  Buf(const Buf&) = delete;
  Buf& operator=(const Buf&) = delete;
  ~Buf() { free(m_p); }
  void Clear() { m_n = 0; }
  size_t Size() const { return m_n; }
  char* Data() { return m_p; }
  const char* CStr() {
    Reserve(1);
    m_p[m_n] = 0;
    return m_p;
  }
  void Append(const char* p, size_t n) {
    if (!n) return;
    Reserve(n);
    memcpy(m_p + m_n, p, n);
    m_n += n;
  }
  void Push(char c) {
    if (m_n + 1 >= m_nCap) Reserve(1);
    m_p[m_n++] = c;
  }
  void Resize(size_t n) { m_n = n; }

private:
  void Reserve(size_t n) {
    if (m_n + n < m_nCap) return;
    size_t nCap = m_nCap ? m_nCap : 256;
    while (nCap <= m_n + n) nCap *= 2;
    char* p = (char*)realloc(m_p, nCap);
    if (!p) throw CKMemoryException(KSRC_PATH, __LINE__);
    m_p = p;
    m_nCap = nCap;
  }
  char* m_p;
  size_t m_n, m_nCap;
};

struct Entity {
  std::string strName;
  std::string strValue;
  bool bExternal;
  bool bUnparsed;
  bool bExpanding;
};

// An attribute declared in the internal subset: its default and whether its
// values are tokens (blanks trimmed and collapsed) rather than CDATA.
struct AttDef {
  std::string strElement, strName, strDefault;
  bool bTokens;
  bool bDefault;
};

// The attributes handed to OnStartTag. Between tags the pairs' string
// objects are parked and reused, so a tag costs no allocation once the
// parser is warm (unless a handler kept a copy of a text).
class AttrList : public CKListParamValue {
public:
  AttrList() {}
  AttrList(const AttrList&) = delete;
  AttrList& operator=(const AttrList&) = delete;
  ~AttrList() override {
    for (CKString* p : m_spare) delete p;
  }
  void Reset() {
    Park(m_ListParam);
    Park(m_ListValue);
  }
  // The texts are n bytes long (and terminated).
  void Add(const char* szName, size_t nName, const char* szValue, size_t nValue) {
    Put(m_ListParam, szName, nName);
    Put(m_ListValue, szValue, nValue);
  }
  // Index of the pair named exactly so, or -1.
  int FindName(const char* sz, size_t n) const {
    const KPile& d = m_ListParam.data;
    for (int i = 0; i < d.elts; ++i) {
      const CKString* s = (const CKString*)d.ptr[i];
      if (s && s->GetLength() == n && !memcmp(s->GetString(), sz, n)) return i;
    }
    return -1;
  }

private:
  // Straight off the slots: the array stays for the next tag.
  void Park(CKList& l) {
    KPile& d = l.data;
    while (d.elts > 0) {
      CKString* p = (CKString*)d.ptr[d.elts - 1];
      if (p) m_spare.push_back(p);
      d.ptr[--d.elts] = nullptr;
    }
  }
  void Put(CKList& l, const char* sz, size_t n) {
    CKString* p;
    if (m_spare.empty()) {
      p = new CKString(sz);
    } else {
      p = m_spare.back();
      m_spare.pop_back();
      // A parked text the handler did not keep is rewritten in place.
      if (n && p->GetRefCount() == 1 && p->GetAllocLength() > n)
        memcpy(p->GetBufferSetLength((unsigned)n), sz, n);
      else
        *p = sz;
    }
    KPile& d = l.data;
    if (d.ptr && d.elts < d.size) {
      d.ptr[d.elts++] = p;
    } else if (l.PileAdd(p) < 0) {
      delete p;
      throw CKMemoryException(KSRC_PATH, __LINE__);
    }
  }
  std::vector<CKString*> m_spare;
};

// A notation declared in the internal subset; an absent identifier is empty.
struct Notation {
  std::string strName, strPublic, strSystem;
};

// Thrown once the error is recorded; caught by Parse.
struct KXmlStop {};

const int kMaxEntityLevel = 32;

}  // namespace

struct CKXmlParser::Impl {
  CKXmlParser& m_parser;
  const char* m_pBegin = nullptr;  // the document
  const char* m_pEnd = nullptr;
  const char* m_pRefAt = nullptr;  // outermost entity reference being expanded
  bool m_bUtf8 = true;
  bool m_bFromUtf16 = false;     // the text parsed is m_utf16 transcoded
  bool m_bSeenRoot = false;
  bool m_bSeenDoctype = false;
  bool m_bUnknownDecls = false;  // entities may be declared where the parser does not read
  bool m_bStandalone = false;
  bool m_bTextReal = false;      // the text buffer holds more than markup blanks
  size_t m_nTextLiteral = 0;     // where the last reference or CDATA ended in m_text
  int m_nLevel = 0;              // entity nesting
  size_t m_nExpanded = 0;
  size_t m_nExpandLimit = 0;
  Buf m_text, m_name, m_value, m_attName, m_stack, m_pi;
  Buf m_utf16;  // a UTF-16 document as UTF-8, read by the UTF-8 path
  std::vector<size_t> m_open;  // start of each open element's name in m_stack
  std::vector<Entity> m_entities;
  std::vector<Notation> m_notations;
  std::vector<AttDef> m_attDefs;
  bool m_bInDtd = false;     // no text tolerance in declarations
  bool m_bSkipDecls = false;  // after an unread parameter entity: declarations not processed
  AttrList m_attrs;

  explicit Impl(CKXmlParser& parser) : m_parser(parser) {}

  // ------------------------------------------------------------ errors
  [[noreturn]] void Fail(int nCode, const char* pAt, const char* szWhat) {
    const char* p = m_pRefAt ? m_pRefAt : pAt;
    if (p < m_pBegin || p > m_pEnd) p = m_pEnd;
    int nLine = 1;
    const char* pLine = m_pBegin;
    for (const char* q = m_pBegin; q < p; ++q) {
      if (*q == '\n' || (*q == '\r' && (q + 1 == m_pEnd || q[1] != '\n'))) {
        ++nLine;
        pLine = q + 1;
      }
    }
    m_parser.m_nError = nCode;
    m_parser.m_nErrorLine = nLine;
    m_parser.m_nErrorColumn = (int)(p - pLine) + 1;
    CKString s;
    s.Format("line %d, column %d: %s", nLine, m_parser.m_nErrorColumn, szWhat);
    m_parser.m_strError = s;
    throw KXmlStop();
  }
  void Check(int bGoOn, const char* p) {
    if (!bGoOn) Fail(KXML_ERR_ABORTED, p, "stopped by a handler");
  }

  // ------------------------------------------------------------ characters
  // Appends the character at p (a byte >= 0x80) to b; returns the bytes used.
  size_t High(const char* p, const char* pEnd, Buf& b) {
    if (!m_bUtf8) {
      b.Push(*p);
      return 1;
    }
    unsigned long cp;
    const int n = DecodeUtf8((const unsigned char*)p, (const unsigned char*)pEnd, cp);
    if (!n) Fail(KXML_ERR_ENCODING, p, "malformed UTF-8");
    if (!IsXmlChar(cp)) Fail(KXML_ERR_CHAR, p, "character not allowed in XML");
    b.Push(cp <= 0xFF ? (char)cp : '?');
    return (size_t)n;
  }
  // Appends a referenced character: 8-bit, or its UTF-8 form when bRaw (entity
  // values stay in the document's encoding until they are read again).
  void PutChar(unsigned long cp, Buf& b, bool bRaw) {
    if (bRaw && m_bUtf8 && cp >= 0x80) {
      char s[4];
      int n;
      if (cp < 0x800) {
        s[0] = (char)(0xC0 | (cp >> 6)), s[1] = (char)(0x80 | (cp & 0x3F)), n = 2;
      } else if (cp < 0x10000) {
        s[0] = (char)(0xE0 | (cp >> 12)), s[1] = (char)(0x80 | ((cp >> 6) & 0x3F));
        s[2] = (char)(0x80 | (cp & 0x3F)), n = 3;
      } else {
        s[0] = (char)(0xF0 | (cp >> 18)), s[1] = (char)(0x80 | ((cp >> 12) & 0x3F));
        s[2] = (char)(0x80 | ((cp >> 6) & 0x3F)), s[3] = (char)(0x80 | (cp & 0x3F)), n = 4;
      }
      b.Append(s, (size_t)n);
      return;
    }
    b.Push(cp <= 0xFF ? (char)cp : '?');
  }

  static bool At(const char* p, const char* pEnd, const char* sz, size_t n) {
    return (size_t)(pEnd - p) >= n && memcmp(p, sz, n) == 0;
  }
  static const char* SkipBlanks(const char* p, const char* pEnd) {
    while (p < pEnd && IsBlank(*p)) ++p;
    return p;
  }
  void NeedBlank(const char*& p, const char* pEnd) {
    const char* q = SkipBlanks(p, pEnd);
    if (q == p) Fail(KXML_ERR_SYNTAX, p, "white space expected");
    p = q;
  }
  void Expect(const char*& p, const char* pEnd, char c, const char* szWhat) {
    if (p >= pEnd) Fail(KXML_ERR_UNCLOSED, p, "unexpected end of input");
    if (*p != c) Fail(KXML_ERR_SYNTAX, p, szWhat);
    ++p;
  }

  // A name into b (converted to 8-bit); fails when none starts at p. In a
  // UTF-8 text, characters above U+007F must belong to the name classes; a
  // single-byte text's bytes are taken as they are.
  void Name(const char*& p, const char* pEnd, Buf& b) {
    b.Clear();
    if (p >= pEnd) Fail(KXML_ERR_UNCLOSED, p, "unexpected end of input");
    if (g_tab.name[(unsigned char)*p] != 1) Fail(KXML_ERR_SYNTAX, p, "name expected");
    const char* pStart = p;
    for (;;) {
      const char* s = p;
      while (p < pEnd && g_tab.name[(unsigned char)*p] && (unsigned char)*p < 0x80) ++p;
      b.Append(s, (size_t)(p - s));
      if (p >= pEnd || (unsigned char)*p < 0x80) return;
      if (!m_bUtf8) {
        b.Push(*p++);
        continue;
      }
      unsigned long cp;
      const int n = DecodeUtf8((const unsigned char*)p, (const unsigned char*)pEnd, cp);
      if (!n) Fail(KXML_ERR_ENCODING, p, "malformed UTF-8");
      if (kxml::NameClass(cp) != 1 && (p == pStart || !kxml::NameClass(cp)))
        Fail(KXML_ERR_CHAR, p, "character not allowed in a name");
      b.Push(cp <= 0xFF ? (char)cp : '?');
      p += n;
    }
  }
  // Length of the name at p, without reading it (0 when none).
  static size_t NameLength(const char* p, const char* pEnd) {
    const char* q = p;
    if (q >= pEnd || g_tab.name[(unsigned char)*q] != 1) return 0;
    while (q < pEnd && g_tab.name[(unsigned char)*q]) ++q;
    return (size_t)(q - p);
  }

  // "&#...;" at p: the character, or fails; p moves past the ';'.
  unsigned long CharRef(const char*& p, const char* pEnd) {
    const char* pAt = p;
    p += 2;
    const bool bHex = p < pEnd && *p == 'x';
    if (bHex) ++p;
    unsigned long v = 0;
    int nDigits = 0;
    for (; p < pEnd && *p != ';'; ++p, ++nDigits) {
      const char c = *p;
      int d;
      if (c >= '0' && c <= '9') d = c - '0';
      else if (bHex && c >= 'a' && c <= 'f') d = c - 'a' + 10;
      else if (bHex && c >= 'A' && c <= 'F') d = c - 'A' + 10;
      else Fail(KXML_ERR_SYNTAX, pAt, "malformed character reference");
      if (v <= 0x10FFFF) v = v * (bHex ? 16 : 10) + (unsigned long)d;
    }
    if (p >= pEnd || !nDigits) Fail(KXML_ERR_SYNTAX, pAt, "malformed character reference");
    ++p;
    if (!IsXmlChar(v)) Fail(KXML_ERR_CHAR, pAt, "character reference to a character not allowed in XML");
    return v;
  }
  // Whether a reference ("&name;" or "&#...") starts at p; a lone '&' is text.
  static bool IsReference(const char* p, const char* pEnd) {
    if (pEnd - p < 2) return false;
    if (p[1] == '#') return true;  // must then be a good character reference
    const size_t n = NameLength(p + 1, pEnd);
    return n && p + 1 + n < pEnd && p[1 + n] == ';';
  }
  static int Predefined(const char* p, size_t n) {
    switch (n) {
      case 2:
        if (!memcmp(p, "lt", 2)) return '<';
        if (!memcmp(p, "gt", 2)) return '>';
        break;
      case 3:
        if (!memcmp(p, "amp", 3)) return '&';
        break;
      case 4:
        if (!memcmp(p, "apos", 4)) return '\'';
        if (!memcmp(p, "quot", 4)) return '"';
        break;
    }
    return 0;
  }
  Entity* FindEntity(const char* p, size_t n) {
    for (Entity& e : m_entities)
      if (e.strName.size() == n && !memcmp(e.strName.data(), p, n)) return &e;
    return nullptr;
  }
  // Opens an entity for expansion: checks recursion and the limits.
  void Enter(Entity& e, const char* pAt) {
    if (e.bExpanding) Fail(KXML_ERR_ENTITY, pAt, "recursive entity reference");
    if (m_nLevel >= kMaxEntityLevel) Fail(KXML_ERR_LIMIT, pAt, "entities nested too deeply");
    m_nExpanded += e.strValue.size();
    if (m_nExpanded > m_nExpandLimit) Fail(KXML_ERR_LIMIT, pAt, "entity expansion limit reached");
    if (!m_nLevel) m_pRefAt = pAt;
    e.bExpanding = true;
    ++m_nLevel;
  }
  void Leave(Entity& e) {
    e.bExpanding = false;
    if (!--m_nLevel) m_pRefAt = nullptr;
  }

  // ------------------------------------------------------------ text
  // bBeforeStart: a start tag follows, before which the tree writes a line
  // break of its own (layout, dropped unless blanks are kept).
  void Flush(bool bBeforeStart = false) {
    size_t n = m_text.Size();
    if (!n) return;
    if (bBeforeStart && !m_parser.m_bKeepBlank && m_text.Data()[n - 1] == '\n' && n > m_nTextLiteral)
      m_text.Resize(--n);
    bool bSend = m_bTextReal || m_parser.m_bKeepBlank;
    if (!bSend) {
      const char* p = m_text.Data();
      for (size_t i = 0; i < n && !bSend; ++i) bSend = !IsBlank(p[i]);
    }
    if (bSend && n) Check(m_parser.OnText(m_text.CStr()), m_pEnd);
    m_text.Clear();
    m_bTextReal = false;
    m_nTextLiteral = 0;
  }

  // Whether the '<' at p starts markup; otherwise it is text.
  static bool IsMarkup(const char* p, const char* pEnd) {
    if (pEnd - p < 2) return false;
    const unsigned char c = (unsigned char)p[1];
    return c == '/' || c == '!' || c == '?' || g_tab.name[c] == 1;
  }

  // Character data up to the next markup (or the end).
  void Text(const char*& p, const char* pEnd) {
    for (;;) {
      const char* s = p;
      p = SkipPlain(p, pEnd, g_tab.text);
      m_text.Append(s, (size_t)(p - s));
      if (p >= pEnd) return;
      const char c = *p;
      if (c == '<') {
        if (IsMarkup(p, pEnd)) return;
        if (m_nLevel) Fail(KXML_ERR_SYNTAX, p, "'<' in entity text");
        m_text.Push('<');
        m_bTextReal = true;
        ++p;
      } else if (c == '&') {
        if (!IsReference(p, pEnd)) {
          if (m_nLevel) Fail(KXML_ERR_SYNTAX, p, "'&' in entity text is not a reference");
          m_text.Push('&');
          m_bTextReal = true;
          ++p;
        } else {
          Reference(p, pEnd);
        }
      } else if (c == ']') {
        if (pEnd - p >= 3 && p[1] == ']' && p[2] == '>') Fail(KXML_ERR_SYNTAX, p, "']]>' in text");
        m_text.Push(']');
        ++p;
      } else if (c == '\r') {
        // A CR in replacement text came from a character reference: kept.
        m_text.Push(m_nLevel ? '\r' : '\n');
        if (++p < pEnd && *p == '\n' && !m_nLevel) ++p;
      } else if ((unsigned char)c >= 0x80) {
        p += High(p, pEnd, m_text);
      } else {
        Fail(KXML_ERR_CHAR, p, "character not allowed in XML");
      }
      // Long runs go out in pieces so the buffer stays small.
      if (m_text.Size() >= 65536 && m_open.size()) Flush();
    }
  }

  // A reference in content; p is at '&' and the syntax is known to be good.
  void Reference(const char*& p, const char* pEnd) {
    const char* pAt = p;
    m_bTextReal = true;
    if (p[1] == '#') {
      PutChar(CharRef(p, pEnd), m_text, false);
      m_nTextLiteral = m_text.Size();
      return;
    }
    const size_t n = NameLength(p + 1, pEnd);
    const char* szName = p + 1;
    p += n + 2;
    if (const int c = Predefined(szName, n)) {
      if (!FindEntity(szName, n)) {
        m_text.Push((char)c);
        return;
      }
    }
    Entity* e = FindEntity(szName, n);
    if (!e) {
      if (m_bUnknownDecls) return;  // may be declared outside: skipped
      Fail(KXML_ERR_ENTITY, pAt, "undeclared entity");
    }
    if (e->bUnparsed) Fail(KXML_ERR_ENTITY, pAt, "reference to an unparsed entity");
    if (e->bExternal) return;  // never fetched
    Enter(*e, pAt);
    const size_t nDepth = m_open.size();
    const char* q = e->strValue.data();
    Content(q, q + e->strValue.size(), nDepth);
    if (m_open.size() != nDepth) Fail(KXML_ERR_ENTITY, pAt, "entity with an unbalanced element");
    Leave(*e);
    m_nTextLiteral = m_text.Size();
  }

  // An attribute value between quotes into b, normalised.
  void AttValue(const char*& p, const char* pEnd, Buf& b) {
    if (p >= pEnd) Fail(KXML_ERR_UNCLOSED, p, "unexpected end of input");
    const char q = *p;
    if (q != '"' && q != '\'') Fail(KXML_ERR_SYNTAX, p, "quoted value expected");
    ++p;
    b.Clear();
    AttText(p, pEnd, b, q);
    ++p;
  }
  // Reads attribute text up to the quote q (or the end when q is 0).
  void AttText(const char*& p, const char* pEnd, Buf& b, char q) {
    for (;;) {
      const char* s = p;
      p = SkipPlain(p, pEnd, g_tab.attr);
      b.Append(s, (size_t)(p - s));
      if (p >= pEnd) {
        if (q) Fail(KXML_ERR_UNCLOSED, p, "unterminated attribute value");
        return;
      }
      const char c = *p;
      if (c == q) return;
      if (c == '"' || c == '\'') {
        b.Push(c);
        ++p;
      } else if (c == '<') {
        if (m_nLevel || m_bInDtd) Fail(KXML_ERR_SYNTAX, p, "'<' in an attribute value");
        b.Push(c);
        ++p;
      } else if (c == '&') {
        if (!IsReference(p, pEnd)) {
          if (m_nLevel || m_bInDtd) Fail(KXML_ERR_SYNTAX, p, "'&' in an attribute value is not a reference");
          b.Push('&');
          ++p;
        } else if (p[1] == '#') {
          PutChar(CharRef(p, pEnd), b, false);
        } else {
          const char* pAt = p;
          const size_t n = NameLength(p + 1, pEnd);
          const char* szName = p + 1;
          p += n + 2;
          Entity* e = FindEntity(szName, n);
          const int cPre = Predefined(szName, n);
          if (cPre && !e) {
            b.Push((char)cPre);
          } else if (!e) {
            if (!m_bUnknownDecls) Fail(KXML_ERR_ENTITY, pAt, "undeclared entity");
          } else if (e->bExternal) {
            Fail(KXML_ERR_ENTITY, pAt, "external entity in an attribute value");
          } else {
            Enter(*e, pAt);
            const char* r = e->strValue.data();
            AttText(r, r + e->strValue.size(), b, 0);
            Leave(*e);
          }
        }
      } else if (c == '\r') {
        b.Push(' ');  // a CR LF of the document is one line end, a referenced one two blanks
        if (++p < pEnd && *p == '\n' && !m_nLevel) ++p;
      } else if (c == '\t' || c == '\n') {
        b.Push(' ');
        ++p;
      } else if ((unsigned char)c >= 0x80) {
        p += High(p, pEnd, b);
      } else {
        Fail(KXML_ERR_CHAR, p, "character not allowed in XML");
      }
    }
  }

  // ------------------------------------------------------------ markup
  // The line break the tree writes after an end tag is layout.
  void SkipLayoutBreak(const char*& p, const char* pEnd) {
    if (m_parser.m_bKeepBlank || p >= pEnd) return;
    if (*p == '\n') {
      ++p;
    } else if (*p == '\r') {
      if (++p < pEnd && *p == '\n') ++p;
    }
  }

  // Whether the tag was an empty-element tag (it ends the element too).
  bool StartTag(const char*& p, const char* pEnd) {
    const char* pAt = p;
    ++p;
    Name(p, pEnd, m_name);
    m_attrs.Reset();
    bool bEmpty = false;
    for (;;) {
      const char* q = SkipBlanks(p, pEnd);
      if (q >= pEnd) Fail(KXML_ERR_UNCLOSED, q, "unexpected end of input in a tag");
      if (*q == '>') {
        p = q + 1;
        break;
      }
      if (*q == '/') {
        p = q + 1;
        Expect(p, pEnd, '>', "'>' expected");
        bEmpty = true;
        break;
      }
      if (q == p) Fail(KXML_ERR_SYNTAX, q, "white space expected before an attribute");
      p = q;
      const char* pName = p;
      Name(p, pEnd, m_attName);
      p = SkipBlanks(p, pEnd);
      Expect(p, pEnd, '=', "'=' expected after an attribute name");
      p = SkipBlanks(p, pEnd);
      AttValue(p, pEnd, m_value);
      if (m_attrs.FindName(m_attName.Data(), m_attName.Size()) >= 0)
        Fail(KXML_ERR_SYNTAX, pName, "duplicate attribute");
      m_attrs.Add(m_attName.CStr(), m_attName.Size(), m_value.CStr(), m_value.Size());
    }
    if (!m_attDefs.empty()) ApplyAttDefs();
    if ((int)m_open.size() >= m_parser.m_nMaxDepth) Fail(KXML_ERR_DEPTH, pAt, "elements nested too deeply");
    if (!m_nLevel && m_open.empty()) m_bSeenRoot = true;
    if (!bEmpty) {
      m_open.push_back(m_stack.Size());
      m_stack.Append(m_name.Data(), m_name.Size());
      m_stack.Push(0);
    }
    const char* szName = UpCased();
    Check(m_parser.OnStartTag(szName, &m_attrs), p);
    if (bEmpty) Check(m_parser.OnEndTag(szName), p);
    return bEmpty;
  }
  // The name in m_name as the events give it.
  const char* UpCased() {
    if (m_parser.m_bTagUpCase) {
      char* s = m_name.Data();
      for (size_t i = 0, n = m_name.Size(); i < n; ++i)
        if (s[i] >= 'a' && s[i] <= 'z') s[i] = (char)(s[i] - 'a' + 'A');
    }
    return m_name.CStr();
  }

  void EndTag(const char*& p, const char* pEnd, size_t nBase) {
    const char* pAt = p;
    p += 2;
    Name(p, pEnd, m_name);
    p = SkipBlanks(p, pEnd);
    Expect(p, pEnd, '>', "'>' expected");
    if (m_open.size() <= nBase) Fail(KXML_ERR_TAG_MISMATCH, pAt, "end tag without a start tag");
    const size_t nAt = m_open.back();
    const char* szOpen = m_stack.Data() + nAt;
    if (m_stack.Size() - nAt - 1 != m_name.Size() || memcmp(szOpen, m_name.Data(), m_name.Size()))
      Fail(KXML_ERR_TAG_MISMATCH, pAt, "end tag does not match the open element");
    m_open.pop_back();
    m_stack.Resize(nAt);
    Check(m_parser.OnEndTag(UpCased()), p);
  }

  // Checks the characters of a comment, PI or CDATA body; b (when given)
  // receives them with line ends normalised.
  void Body(const char* s, const char* e, Buf* b) {
    while (s < e) {
      const unsigned char c = (unsigned char)*s;
      if (c >= 0x80) {
        if (b) {
          s += High(s, e, *b);
        } else {
          Buf tmp;
          s += High(s, e, tmp);
        }
        continue;
      }
      if (c == '\r') {
        if (b) b->Push('\n');
        if (++s < e && *s == '\n') ++s;
        continue;
      }
      if (c < 0x20 && c != '\t' && c != '\n') Fail(KXML_ERR_CHAR, s, "character not allowed in XML");
      if (b) b->Push((char)c);
      ++s;
    }
  }
  // Position of sz in [p, pEnd), or null.
  static const char* Find(const char* p, const char* pEnd, const char* sz, size_t n) {
    while ((size_t)(pEnd - p) >= n) {
      const char* q = (const char*)memchr(p, sz[0], (size_t)(pEnd - p) - n + 1);
      if (!q) return nullptr;
      if (!memcmp(q, sz, n)) return q;
      p = q + 1;
    }
    return nullptr;
  }

  void Comment(const char*& p, const char* pEnd) {
    const char* pAt = p;
    p += 4;
    const char* q = Find(p, pEnd, "--", 2);
    if (!q) Fail(KXML_ERR_UNCLOSED, pAt, "unterminated comment");
    if (q + 2 >= pEnd || q[2] != '>') Fail(KXML_ERR_SYNTAX, q, "'--' inside a comment");
    Body(p, q, nullptr);
    p = q + 3;
  }

  void CData(const char*& p, const char* pEnd) {
    const char* pAt = p;
    p += 9;
    const char* q = Find(p, pEnd, "]]>", 3);
    if (!q) Fail(KXML_ERR_UNCLOSED, pAt, "unterminated CDATA section");
    Body(p, q, &m_text);
    m_bTextReal = true;
    m_nTextLiteral = m_text.Size();
    p = q + 3;
  }

  // "<?target data?>": reported unless bQuiet (inside the DOCTYPE).
  void ProcInstr(const char*& p, const char* pEnd, bool bQuiet) {
    const char* pAt = p;
    p += 2;
    Name(p, pEnd, m_name);
    if (m_name.Size() == 3 && (m_name.Data()[0] | 0x20) == 'x' && (m_name.Data()[1] | 0x20) == 'm' &&
        (m_name.Data()[2] | 0x20) == 'l')
      Fail(KXML_ERR_SYNTAX, pAt, "XML declaration not at the start of the document");
    m_pi.Clear();
    if (!At(p, pEnd, "?>", 2)) {
      NeedBlank(p, pEnd);
      const char* q = Find(p, pEnd, "?>", 2);
      if (!q) Fail(KXML_ERR_UNCLOSED, pAt, "unterminated processing instruction");
      Body(p, q, &m_pi);
      p = q;
    }
    p += 2;
    if (bQuiet) return;
    PseudoAttributes(m_pi.CStr(), m_pi.Data() + m_pi.Size(), false);
    Check(m_parser.OnProcInstr(m_name.CStr(), &m_attrs), p);
  }
  // name="value" pairs of PI data into m_attrs; empty when the data has
  // another form (strict for the XML declaration: fails instead).
  bool PseudoAttributes(const char* p, const char* pEnd, bool bStrict) {
    m_attrs.Empty();
    Buf n, v;
    for (;;) {
      p = SkipBlanks(p, pEnd);
      if (p >= pEnd) return true;
      const size_t nLen = NameLength(p, pEnd);
      const char* q = p + nLen;
      const char* r = SkipBlanks(q, pEnd);
      if (!nLen || r >= pEnd || *r != '=') break;
      r = SkipBlanks(r + 1, pEnd);
      if (r >= pEnd || (*r != '"' && *r != '\'')) break;
      const char* e = (const char*)memchr(r + 1, *r, (size_t)(pEnd - r - 1));
      if (!e || (e + 1 < pEnd && !IsBlank(e[1]))) break;
      n.Clear();
      n.Append(p, nLen);
      v.Clear();
      v.Append(r + 1, (size_t)(e - r - 1));
      m_attrs.AddValue(n.CStr(), v.CStr());
      p = e + 1;
    }
    if (bStrict) return false;
    m_attrs.Empty();
    return false;
  }

  // "<?xml ...?>" at the very start.
  void XmlDecl(const char*& p, const char* pEnd) {
    const char* pAt = p;
    const char* q = Find(p, pEnd, "?>", 2);
    if (!q) Fail(KXML_ERR_UNCLOSED, pAt, "unterminated XML declaration");
    const char* s = p + 5;
    m_attrs.Empty();
    // version, then encoding, then standalone, each optional but the first.
    static const char* const kNames[3] = {"version", "encoding", "standalone"};
    int nNext = 0;
    Buf v;
    for (;;) {
      const char* t = SkipBlanks(s, q);
      if (t == q) break;
      if (t == s) Fail(KXML_ERR_SYNTAX, t, "white space expected in the XML declaration");
      s = t;
      const size_t nLen = NameLength(s, q);
      int i = nNext;
      while (i < 3 && !(strlen(kNames[i]) == nLen && !memcmp(s, kNames[i], nLen))) ++i;
      if (i == 3 || (i > 0 && nNext == 0)) Fail(KXML_ERR_SYNTAX, s, "bad XML declaration");
      nNext = i + 1;
      s += nLen;
      s = SkipBlanks(s, q);
      if (s >= q || *s != '=') Fail(KXML_ERR_SYNTAX, s, "'=' expected in the XML declaration");
      s = SkipBlanks(s + 1, q);
      if (s >= q || (*s != '"' && *s != '\'')) Fail(KXML_ERR_SYNTAX, s, "quoted value expected");
      const char* e = (const char*)memchr(s + 1, *s, (size_t)(q - s - 1));
      if (!e) Fail(KXML_ERR_SYNTAX, s, "unterminated value in the XML declaration");
      v.Clear();
      v.Append(s + 1, (size_t)(e - s - 1));
      if (!DeclValueOk(i, v.CStr(), e - s - 1)) Fail(KXML_ERR_SYNTAX, s, "bad value in the XML declaration");
      m_attrs.AddValue(kNames[i], v.CStr());
      s = e + 1;
    }
    if (!nNext) Fail(KXML_ERR_SYNTAX, pAt, "version missing in the XML declaration");
    m_bStandalone = m_attrs.GetValue("standalone") == "yes";
    const CKString strEnc = m_attrs.GetValue("encoding");
    if (strEnc.GetLength()) {
      const bool bUtf16 = !strEnc.CompareNoCase("UTF-16") || !strEnc.CompareNoCase("UTF16") ||
                          !strEnc.CompareNoCase("UTF-16LE") || !strEnc.CompareNoCase("UTF-16BE");
      if (bUtf16 != m_bFromUtf16)
        Fail(KXML_ERR_ENCODING, pAt,
             bUtf16 ? "UTF-16 declared, but the text is not UTF-16" : "a UTF-16 text declares another encoding");
      m_bUtf8 = bUtf16 || !strEnc.CompareNoCase("UTF-8") || !strEnc.CompareNoCase("UTF8");
    }
    p = q + 2;
    Check(m_parser.OnProcInstr("xml", &m_attrs), p);
  }
  static bool DeclValueOk(int i, const char* s, long n) {
    if (i == 0) {
      if (n < 3 || s[0] != '1' || s[1] != '.') return false;
      for (long k = 2; k < n; ++k)
        if (s[k] < '0' || s[k] > '9') return false;
      return true;
    }
    if (i == 2) return !strcmp(s, "yes") || !strcmp(s, "no");
    if (!n || !((s[0] >= 'A' && s[0] <= 'Z') || (s[0] >= 'a' && s[0] <= 'z'))) return false;
    for (long k = 1; k < n; ++k) {
      const char c = s[k];
      if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
            c == '_' || c == '-'))
        return false;
    }
    return true;
  }

  // ------------------------------------------------------------ DOCTYPE
  // A quoted literal; p moves past it.
  // A quoted literal; its text (8-bit) into *pText when asked.
  void Literal(const char*& p, const char* pEnd, std::string* pText = nullptr) {
    if (p >= pEnd || (*p != '"' && *p != '\'')) Fail(KXML_ERR_SYNTAX, p, "quoted literal expected");
    const char* e = (const char*)memchr(p + 1, *p, (size_t)(pEnd - p - 1));
    if (!e) Fail(KXML_ERR_UNCLOSED, p, "unterminated literal");
    if (pText) {
      m_value.Clear();
      Body(p + 1, e, &m_value);
      pText->assign(m_value.Data() ? m_value.Data() : "", m_value.Size());
    } else {
      Body(p + 1, e, nullptr);
    }
    p = e + 1;
  }
  // SYSTEM "uri" or PUBLIC "id" "uri"; false when neither keyword is there.
  // pNotation (when given) receives the identifiers.
  bool ExternalId(const char*& p, const char* pEnd, bool bPublicOnly = false, Notation* pNotation = nullptr) {
    if (At(p, pEnd, "SYSTEM", 6)) {
      p += 6;
      NeedBlank(p, pEnd);
      Literal(p, pEnd, pNotation ? &pNotation->strSystem : nullptr);
      return true;
    }
    if (At(p, pEnd, "PUBLIC", 6)) {
      p += 6;
      NeedBlank(p, pEnd);
      const char* s = p;
      Literal(p, pEnd, pNotation ? &pNotation->strPublic : nullptr);
      for (const char* c = s + 1; c < p - 1; ++c)
        if (!strchr(" \r\nabcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-'()+,./:=?;!*#@$_%", *c))
          Fail(KXML_ERR_CHAR, c, "character not allowed in a public identifier");
      if (bPublicOnly) {
        const char* q = SkipBlanks(p, pEnd);
        if (q >= pEnd || (*q != '"' && *q != '\'')) return true;
      }
      NeedBlank(p, pEnd);
      Literal(p, pEnd, pNotation ? &pNotation->strSystem : nullptr);
      return true;
    }
    return false;
  }

  void Doctype(const char*& p, const char* pEnd) {
    const char* pAt = p;
    p += 9;
    NeedBlank(p, pEnd);
    Name(p, pEnd, m_name);
    const char* q = SkipBlanks(p, pEnd);
    if (q > p && ExternalId(q, pEnd) && !m_bStandalone) m_bUnknownDecls = true;
    p = SkipBlanks(q, pEnd);
    if (p < pEnd && *p == '[') {
      ++p;
      InternalSubset(p, pEnd);
      p = SkipBlanks(p, pEnd);
    }
    if (p >= pEnd) Fail(KXML_ERR_UNCLOSED, pAt, "unterminated DOCTYPE");
    Expect(p, pEnd, '>', "'>' expected at the end of the DOCTYPE");
    m_bSeenDoctype = true;
  }

  void InternalSubset(const char*& p, const char* pEnd) {
    for (;;) {
      p = SkipBlanks(p, pEnd);
      if (p >= pEnd) Fail(KXML_ERR_UNCLOSED, p, "unterminated internal subset");
      if (*p == ']') {
        ++p;
        return;
      }
      if (*p == '%') {
        const char* pAt = p;
        ++p;
        if (!NameLength(p, pEnd)) Fail(KXML_ERR_SYNTAX, pAt, "malformed parameter entity reference");
        Name(p, pEnd, m_name);
        Expect(p, pEnd, ';', "';' expected");
        if (!m_bStandalone) m_bUnknownDecls = m_bSkipDecls = true;
      } else if (At(p, pEnd, "<!--", 4)) {
        Comment(p, pEnd);
      } else if (At(p, pEnd, "<?", 2)) {
        ProcInstr(p, pEnd, true);
      } else if (At(p, pEnd, "<!ENTITY", 8)) {
        EntityDecl(p, pEnd);
      } else if (At(p, pEnd, "<!ELEMENT", 9)) {
        ElementDecl(p, pEnd);
      } else if (At(p, pEnd, "<!ATTLIST", 9)) {
        AttlistDecl(p, pEnd);
      } else if (At(p, pEnd, "<!NOTATION", 10)) {
        NotationDecl(p, pEnd);
      } else {
        Fail(KXML_ERR_SYNTAX, p, "markup declaration expected");
      }
    }
  }
  // "<!ELEMENT name contentspec>": the content model is checked, not kept.
  void ElementDecl(const char*& p, const char* pEnd) {
    p += 9;
    NeedBlank(p, pEnd);
    Name(p, pEnd, m_name);
    NeedBlank(p, pEnd);
    if (At(p, pEnd, "EMPTY", 5)) {
      p += 5;
    } else if (At(p, pEnd, "ANY", 3)) {
      p += 3;
    } else {
      const char* q = SkipBlanks(p + 1, pEnd);
      if (p < pEnd && *p == '(' && At(q, pEnd, "#PCDATA", 7)) {
        Mixed(p = q + 7, pEnd);
      } else {
        if (p >= pEnd || *p != '(') Fail(KXML_ERR_SYNTAX, p, "content model expected");
        Particle(p, pEnd, 0);
      }
    }
    p = SkipBlanks(p, pEnd);
    Expect(p, pEnd, '>', "'>' expected at the end of the element declaration");
  }
  // After "(#PCDATA": ")" or ")*", or "| name ... )*".
  void Mixed(const char*& p, const char* pEnd) {
    bool bNames = false;
    for (;;) {
      p = SkipBlanks(p, pEnd);
      if (p < pEnd && *p == ')') {
        ++p;
        if (p < pEnd && *p == '*') ++p;
        else if (bNames) Fail(KXML_ERR_SYNTAX, p, "')*' expected after mixed content names");
        return;
      }
      Expect(p, pEnd, '|', "'|' expected in mixed content");
      p = SkipBlanks(p, pEnd);
      Name(p, pEnd, m_value);
      bNames = true;
    }
  }
  // A content particle: a name or a parenthesised choice or sequence, with
  // an optional '?', '*' or '+'.
  void Particle(const char*& p, const char* pEnd, int nDepth) {
    if (nDepth > 64) Fail(KXML_ERR_LIMIT, p, "content model nested too deeply");
    if (p < pEnd && *p == '(') {
      ++p;
      char cSep = 0;
      for (;;) {
        p = SkipBlanks(p, pEnd);
        Particle(p, pEnd, nDepth + 1);
        p = SkipBlanks(p, pEnd);
        if (p >= pEnd) Fail(KXML_ERR_UNCLOSED, p, "unterminated content model");
        if (*p == ')') {
          ++p;
          break;
        }
        if ((*p != '|' && *p != ',') || (cSep && *p != cSep))
          Fail(KXML_ERR_SYNTAX, p, "bad separator in a content model");
        cSep = *p++;
      }
    } else {
      Name(p, pEnd, m_value);
    }
    if (p < pEnd && (*p == '?' || *p == '*' || *p == '+')) ++p;
  }

  // "<!ATTLIST element (name type default)*>": types and defaults are kept.
  void AttlistDecl(const char*& p, const char* pEnd) {
    p += 9;
    NeedBlank(p, pEnd);
    Name(p, pEnd, m_name);
    const std::string strElement(m_name.Data(), m_name.Size());
    for (;;) {
      const char* q = SkipBlanks(p, pEnd);
      if (q < pEnd && *q == '>') {
        p = q + 1;
        return;
      }
      NeedBlank(p, pEnd);
      Name(p, pEnd, m_name);
      AttDef d{strElement, std::string(m_name.Data(), m_name.Size()), std::string(), true, false};
      NeedBlank(p, pEnd);
      static const char* const kTypes[] = {"CDATA", "IDREFS", "IDREF", "ID", "ENTITIES", "ENTITY",
                                           "NMTOKENS", "NMTOKEN"};
      bool bType = false;
      for (const char* t : kTypes) {
        const size_t n = strlen(t);
        if (At(p, pEnd, t, n) && p + n < pEnd && !g_tab.name[(unsigned char)p[n]]) {
          d.bTokens = t[0] != 'C';
          p += n;
          bType = true;
          break;
        }
      }
      if (!bType) {
        const bool bNotation = At(p, pEnd, "NOTATION", 8);
        if (bNotation) {
          p += 8;
          NeedBlank(p, pEnd);
        }
        Expect(p, pEnd, '(', "attribute type expected");
        for (;;) {
          p = SkipBlanks(p, pEnd);
          if (bNotation) {
            Name(p, pEnd, m_value);
          } else {
            const char* s0 = p;
            while (p < pEnd && g_tab.name[(unsigned char)*p]) ++p;
            if (p == s0) Fail(KXML_ERR_SYNTAX, p, "name token expected");
          }
          p = SkipBlanks(p, pEnd);
          if (p < pEnd && *p == ')') {
            ++p;
            break;
          }
          Expect(p, pEnd, '|', "'|' expected in an enumeration");
        }
      }
      NeedBlank(p, pEnd);
      if (At(p, pEnd, "#REQUIRED", 9)) {
        p += 9;
      } else if (At(p, pEnd, "#IMPLIED", 8)) {
        p += 8;
      } else {
        if (At(p, pEnd, "#FIXED", 6)) {
          p += 6;
          NeedBlank(p, pEnd);
        }
        m_bInDtd = true;
        AttValue(p, pEnd, m_value);
        m_bInDtd = false;
        d.bDefault = true;
        d.strDefault.assign(m_value.Size() ? m_value.Data() : "", m_value.Size());
        if (d.bTokens) d.strDefault = Tokens(d.strDefault);
      }
      bool bKnown = false;
      for (const AttDef& o : m_attDefs) bKnown = bKnown || (o.strElement == d.strElement && o.strName == d.strName);
      if (!bKnown && !m_bSkipDecls) m_attDefs.push_back(std::move(d));
    }
  }
  // A token list's value: blanks trimmed, inner runs made one space.
  static std::string Tokens(const std::string& s) {
    std::string r;
    for (size_t i = 0; i < s.size(); ++i) {
      if (s[i] != ' ') {
        r += s[i];
      } else if (!r.empty() && r.back() != ' ') {
        r += ' ';
      }
    }
    if (!r.empty() && r.back() == ' ') r.pop_back();
    return r;
  }
  // Declared attributes of the element in m_name: token values normalised,
  // defaults added for those absent.
  void ApplyAttDefs() {
    const std::string strElement(m_name.Data(), m_name.Size());
    for (const AttDef& d : m_attDefs) {
      if (d.strElement != strElement) continue;
      const int i = m_attrs.Find(d.strName.c_str());
      if (i >= 0) {
        if (d.bTokens) m_attrs.SetValue(i, Tokens(m_attrs.GetValue(i).GetString()).c_str());
      } else if (d.bDefault) {
        m_attrs.AddValue(d.strName.c_str(), d.strDefault.c_str());
      }
    }
  }

  // "<!NOTATION name SYSTEM 'uri'>", "PUBLIC 'id'" or "PUBLIC 'id' 'uri'".
  void NotationDecl(const char*& p, const char* pEnd) {
    p += 10;
    NeedBlank(p, pEnd);
    Name(p, pEnd, m_name);
    Notation n;
    n.strName.assign(m_name.Data(), m_name.Size());
    NeedBlank(p, pEnd);
    if (!ExternalId(p, pEnd, true, &n)) Fail(KXML_ERR_SYNTAX, p, "external or public identifier expected");
    p = SkipBlanks(p, pEnd);
    Expect(p, pEnd, '>', "'>' expected at the end of the notation declaration");
    // Kept for the caller, in declaration order; a name declared twice keeps
    // its first declaration.
    for (const Notation& o : m_notations)
      if (o.strName == n.strName) return;
    m_notations.push_back(std::move(n));
  }

  void EntityDecl(const char*& p, const char* pEnd) {
    const char* pAt = p;
    p += 8;
    NeedBlank(p, pEnd);
    bool bParam = false;
    if (p < pEnd && *p == '%') {
      bParam = true;
      ++p;
      NeedBlank(p, pEnd);
    }
    Name(p, pEnd, m_name);
    Entity e{std::string(m_name.Data(), m_name.Size()), std::string(), false, false, false};
    NeedBlank(p, pEnd);
    if (p < pEnd && (*p == '"' || *p == '\'')) {
      EntityValue(p, pEnd, e.strValue);
    } else if (ExternalId(p, pEnd)) {
      e.bExternal = true;
      const char* q = SkipBlanks(p, pEnd);
      if (At(q, pEnd, "NDATA", 5)) {
        if (q == p || bParam) Fail(KXML_ERR_SYNTAX, q, "misplaced NDATA");
        p = q + 5;
        NeedBlank(p, pEnd);
        Name(p, pEnd, m_value);
        e.bUnparsed = true;
      }
    } else {
      Fail(KXML_ERR_SYNTAX, p, "entity value or external identifier expected");
    }
    p = SkipBlanks(p, pEnd);
    if (p >= pEnd) Fail(KXML_ERR_UNCLOSED, pAt, "unterminated entity declaration");
    Expect(p, pEnd, '>', "'>' expected at the end of the entity declaration");
    if (!bParam && !m_bSkipDecls && !FindEntity(e.strName.data(), e.strName.size()))
      m_entities.push_back(std::move(e));
  }

  // The replacement text of an entity literal: character references done,
  // entity references kept for the use site, bytes still in the document's
  // encoding.
  void EntityValue(const char*& p, const char* pEnd, std::string& strOut) {
    const char q = *p++;
    Buf b;
    for (;;) {
      if (p >= pEnd) Fail(KXML_ERR_UNCLOSED, p, "unterminated entity value");
      const char c = *p;
      if (c == q) {
        ++p;
        break;
      }
      if (c == '%') Fail(KXML_ERR_SYNTAX, p, "parameter entity reference in the internal subset");
      if (c == '&') {
        if (!IsReference(p, pEnd)) Fail(KXML_ERR_SYNTAX, p, "malformed reference in an entity value");
        if (p[1] == '#') {
          PutChar(CharRef(p, pEnd), b, true);
        } else {
          const char* s = p;
          p += NameLength(p + 1, pEnd) + 2;
          b.Append(s, (size_t)(p - s));
        }
      } else if (c == '\r') {
        b.Push('\n');
        if (++p < pEnd && *p == '\n') ++p;
      } else if ((unsigned char)c >= 0x80) {
        if (m_bUtf8) {
          Buf tmp;
          const size_t n = High(p, pEnd, tmp);
          b.Append(p, n);
          p += n;
        } else {
          b.Push(c);
          ++p;
        }
      } else {
        if ((unsigned char)c < 0x20 && !IsBlank(c)) Fail(KXML_ERR_CHAR, p, "character not allowed in XML");
        b.Push(c);
        ++p;
      }
    }
    strOut.assign(b.Size() ? b.Data() : "", b.Size());
  }

  // ------------------------------------------------------------ content
  // Everything from p to pEnd: the document (nBase 0, level 0) or the
  // replacement text of an entity.
  void Content(const char*& p, const char* pEnd, size_t nBase) {
    while (p < pEnd) {
      if (*p == '<' && IsMarkup(p, pEnd)) {
        const char c = p[1];
        Flush(g_tab.name[(unsigned char)c] == 1);
        if (c == '/') {
          EndTag(p, pEnd, nBase);
          SkipLayoutBreak(p, pEnd);
        } else if (c == '?') {
          ProcInstr(p, pEnd, false);
        } else if (c == '!') {
          if (At(p, pEnd, "<!--", 4)) {
            Comment(p, pEnd);
          } else if (At(p, pEnd, "<![CDATA[", 9)) {
            if (m_open.empty()) Fail(KXML_ERR_SYNTAX, p, "CDATA section outside an element");
            CData(p, pEnd);
          } else if (At(p, pEnd, "<!DOCTYPE", 9) && !m_nLevel && !m_bSeenDoctype && !m_bSeenRoot) {
            Doctype(p, pEnd);
          } else {
            Fail(KXML_ERR_SYNTAX, p, "unexpected markup declaration");
          }
        } else if (StartTag(p, pEnd)) {
          SkipLayoutBreak(p, pEnd);
        }
      } else if (m_open.empty()) {
        const char* q = SkipBlanks(p, pEnd);
        if (q == p) Fail(KXML_ERR_SYNTAX, p, "text outside the document element");
        p = q;
      } else {
        Text(p, pEnd);
      }
    }
    Flush();
  }

  // A UTF-16 text (byte-order mark, or "<?" in either byte order) becomes
  // UTF-8 in m_utf16, and [p, pEnd) points at it; false for other texts.
  bool FromUtf16(const char*& p, const char*& pEnd) {
    const unsigned char* u = (const unsigned char*)p;
    size_t n = (size_t)(pEnd - p);
    bool bBig;
    if (n >= 2 && u[0] == 0xFE && u[1] == 0xFF) {
      bBig = true, u += 2, n -= 2;
    } else if (n >= 2 && u[0] == 0xFF && u[1] == 0xFE) {
      bBig = false, u += 2, n -= 2;
    } else if (n >= 4 && !u[0] && u[1] == '<' && !u[2] && u[3] == '?') {
      bBig = true;
    } else if (n >= 4 && u[0] == '<' && !u[1] && u[2] == '?' && !u[3]) {
      bBig = false;
    } else {
      return false;
    }
    if (n % 2) Fail(KXML_ERR_ENCODING, pEnd, "UTF-16 text of odd length");
    m_utf16.Clear();
    m_bUtf8 = true;  // PutChar writes UTF-8
    for (size_t i = 0; i < n; i += 2) {
      unsigned long c = bBig ? (unsigned long)(u[i] << 8 | u[i + 1]) : (unsigned long)(u[i + 1] << 8 | u[i]);
      if (c >= 0xDC00 && c <= 0xDFFF) Fail(KXML_ERR_ENCODING, (const char*)u + i, "lone UTF-16 surrogate");
      if (c >= 0xD800 && c <= 0xDBFF) {
        const unsigned long d = i + 3 < n ? (bBig ? (unsigned long)(u[i + 2] << 8 | u[i + 3])
                                                  : (unsigned long)(u[i + 3] << 8 | u[i + 2]))
                                          : 0;
        if (d < 0xDC00 || d > 0xDFFF) Fail(KXML_ERR_ENCODING, (const char*)u + i, "lone UTF-16 surrogate");
        c = 0x10000 + ((c - 0xD800) << 10) + (d - 0xDC00);
        i += 2;
      }
      PutChar(c, m_utf16, true);
    }
    m_bFromUtf16 = true;
    p = m_utf16.Size() ? m_utf16.Data() : "";
    pEnd = p + m_utf16.Size();
    return true;
  }

  void Document(const char* p, const char* pEnd) {
    m_pBegin = p;
    m_pEnd = pEnd;
    m_nExpandLimit = (size_t)(pEnd - p) * 8 + (1u << 20);
    if (FromUtf16(p, pEnd)) {
      m_pBegin = p;
      m_pEnd = pEnd;
    } else if (At(p, pEnd, "\xEF\xBB\xBF", 3)) {
      p += 3;
    }
    if (At(p, pEnd, "<?xml", 5) && pEnd - p > 5 && IsBlank(p[5])) XmlDecl(p, pEnd);
    Content(p, pEnd, 0);
    if (!m_open.empty()) {
      CKString s = CKString("element '") + (m_stack.Data() + m_open.back()) + "' is not closed";
      Fail(KXML_ERR_UNCLOSED, pEnd, s);
    }
    if (!m_bSeenRoot) Fail(KXML_ERR_NO_ROOT, pEnd, "no element in the document");
  }
};

// ---------------------------------------------------------------- CKXmlParser
CKXmlParser::CKXmlParser()
    : m_pText(nullptr),
      m_nLength(0),
      m_bTagUpCase(TRUE),
      m_bKeepBlank(FALSE),
      m_nMaxDepth(10000),
      m_nError(KXML_OK),
      m_nErrorLine(0),
      m_nErrorColumn(0),
      m_pImpl(nullptr) {}

CKXmlParser::~CKXmlParser() { delete m_pImpl; }

void CKXmlParser::SetString(const CKString& strText) {
  m_strText = strText;
  m_pText = m_strText.GetString();
  m_nLength = m_strText.GetLength();
}

void CKXmlParser::SetString(const char* szText, unsigned nLength) {
  m_strText.Empty();
  m_pText = szText;
  m_nLength = szText ? nLength : 0;
}

int CKXmlParser::SetFile(const char* szFile) {
  CKString s;
  if (!szFile || !KStrFileToText(szFile, s)) {
    SetString(CKString());
    m_nError = KXML_ERR_NO_INPUT;
    m_strError = CKString("cannot read ") + (szFile ? szFile : "(null)");
    return FALSE;
  }
  SetString(s);
  return TRUE;
}

void CKXmlParser::ResetParser() {
  delete m_pImpl;
  m_pImpl = nullptr;
  m_nError = KXML_OK;
  m_nErrorLine = m_nErrorColumn = 0;
  m_strError.Empty();
}

int CKXmlParser::GetNotationCount() const { return m_pImpl ? (int)m_pImpl->m_notations.size() : 0; }

int CKXmlParser::GetNotation(int i, CKString& strName, CKString& strPublicId, CKString& strSystemId) const {
  strName.Empty();
  strPublicId.Empty();
  strSystemId.Empty();
  if (i < 0 || i >= GetNotationCount()) return FALSE;
  const Notation& n = m_pImpl->m_notations[(size_t)i];
  strName = n.strName.c_str();
  strPublicId = n.strPublic.c_str();
  strSystemId = n.strSystem.c_str();
  return TRUE;
}

const char* CKXmlParser::GetProcInstrData() const { return m_pImpl ? m_pImpl->m_pi.CStr() : ""; }

int CKXmlParser::Parse() {
  ResetParser();
  m_pImpl = new Impl(*this);
  try {
    if (!OnStart()) m_pImpl->Fail(KXML_ERR_ABORTED, m_pText, "stopped by a handler");
    m_pImpl->Document(m_pText ? m_pText : "", m_pText ? m_pText + m_nLength : "");
  } catch (const KXmlStop&) {
    OnError();
  } catch (const std::bad_alloc&) {
    throw CKMemoryException(KSRC_PATH, __LINE__);
  }
  OnEnd();
  return m_nError == KXML_OK;
}

int CKXmlParser::Parse(const char* szText) { return Parse(szText, szText ? (unsigned)strlen(szText) : 0); }

int CKXmlParser::Parse(const char* pText, unsigned nLength) {
  SetString(pText, nLength);
  return Parse();
}

int CKXmlParser::ParseFile(const char* szFile) {
  if (!SetFile(szFile)) {
    OnStart();
    OnError();
    OnEnd();
    return FALSE;
  }
  return Parse();
}

int CKXmlParser::OnStart() { return TRUE; }
int CKXmlParser::OnEnd() { return TRUE; }
int CKXmlParser::OnStartTag(const char*, CKListParamValue*) { return TRUE; }
int CKXmlParser::OnEndTag(const char*) { return TRUE; }
int CKXmlParser::OnText(const char*) { return TRUE; }
int CKXmlParser::OnValue(const char*) { return TRUE; }
int CKXmlParser::OnProcInstr(const char*, CKListParamValue*) { return TRUE; }
int CKXmlParser::OnError() { return TRUE; }
