// CKTestLog: the log sink the tests share. While alive it is the process's
// tools object (logging on) and records every line with its type; the
// library's default object comes back when it goes. Lines may come from any
// thread; read `lines` directly only once those threads are done.
#ifndef KELVOR_KTESTLOG_H
#define KELVOR_KTESTLOG_H

#include <cctype>
#include <mutex>
#include <string>
#include <vector>

#include <base/tools/KTools.h>

class CKTestLog : public CKTools {
public:
  struct Line {
    std::string text;
    int type;
  };
  typedef std::vector<std::string> Strings;
  // The three endings of an assertion line.
  static constexpr const char* kContinue = ". Continue...";
  static constexpr const char* kReturnValue = ". Returning value...";
  static constexpr const char* kReturn = ". Returning";

  CKTestLog() {
    SetFlags(GetFlags() | KTOOLS_FLAG_LOG);
    KToolsInit(this);
  }
  ~CKTestLog() override { KToolsInit(nullptr); }
  CKTestLog(const CKTestLog&) = delete;
  CKTestLog& operator=(const CKTestLog&) = delete;

  void Log(const char* szText, int nType) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    lines.push_back({szText ? szText : "", nType});
  }

  size_t Count() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return lines.size();
  }
  void Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    lines.clear();
  }
  std::string Last() const { return LastLine().text; }
  int LastType() const { return LastLine().type; }
  // The texts of the lines of one type (of every type for 0), in order.
  Strings Texts(int nType = 0) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    Strings v;
    for (const Line& l : lines)
      if (!nType || l.type == nType) v.push_back(l.text);
    return v;
  }
  Strings Asserts() const { return Texts(8); }

  // Whether a type-8 line (the last one) reports a failed check of strCond in
  // strPath with the given ending, on line nLine (on any line for -1).
  bool HasAssert(const std::string& strCond, const std::string& strPath,
                 const std::string& strEnding = kContinue, int nLine = -1) const {
    for (const std::string& s : Asserts())
      if (IsAssert(s, strCond, strPath, strEnding, nLine)) return true;
    return false;
  }
  bool LastIsAssert(const std::string& strCond, const std::string& strPath,
                    const std::string& strEnding = kContinue, int nLine = -1) const {
    const Line l = LastLine();
    return l.type == 8 && IsAssert(l.text, strCond, strPath, strEnding, nLine);
  }
  // Whether strLine is exactly such a report. The bare ". Returning" form has
  // no closing parenthesis after the condition.
  static bool IsAssert(const std::string& strLine, const std::string& strCond,
                       const std::string& strPath, const std::string& strEnding, int nLine = -1) {
    const std::string strHead = "Assertion failed (" + strCond +
                                (strEnding == kReturn ? " in " : ") in ") + strPath + " on line ";
    if (strLine.size() <= strHead.size() + strEnding.size() ||
        strLine.compare(0, strHead.size(), strHead) != 0 ||
        strLine.compare(strLine.size() - strEnding.size(), strEnding.size(), strEnding) != 0)
      return false;
    const std::string strNum =
        strLine.substr(strHead.size(), strLine.size() - strHead.size() - strEnding.size());
    for (char c : strNum)
      if (!isdigit((unsigned char)c)) return false;
    return nLine < 0 || strNum == std::to_string(nLine);
  }

  std::vector<Line> lines;

private:
  Line LastLine() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return lines.empty() ? Line{std::string(), 0} : lines.back();
  }
  mutable std::mutex m_mutex;
};

#endif  // KELVOR_KTESTLOG_H
