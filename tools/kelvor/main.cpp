// kelvor: inspect and make the library's files from the command line.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <sstream>

#include <CLI/CLI.hpp>

#include "Console.h"
#include "Tool.h"

namespace {

// Keeps the library's log lines instead of letting them vanish: the last
// one explains a failure; with KELVOR_DEBUG set they are also shown.
class CToolLog : public CKTools {
public:
  void Log(const char* szText, int nType) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (nType == 8 || nType == 10 || nType == 24) m_strLast = szText ? szText : "";
    if (std::getenv("KELVOR_DEBUG")) std::fprintf(stderr, "[log %d] %s\n", nType, szText ? szText : "");
  }
  std::string Take() {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string s;
    s.swap(m_strLast);
    return s;
  }

private:
  std::mutex m_mutex;
  std::string m_strLast;
};

CToolLog* g_pLog = nullptr;

}  // namespace

namespace ktool {

std::string TakeLibraryMessage() { return g_pLog ? g_pLog->Take() : std::string(); }

void Fail(const std::string& strFile, const std::string& strReason) {
  std::string s = strFile + ": " + strReason;
  const std::string strLib = TakeLibraryMessage();
  if (!strLib.empty()) s += " (" + strLib + ")";
  throw Failure(s);
}

std::string ReadAll(const std::string& strFile) {
  if (strFile == "-") {
    std::ostringstream os;
    os << std::cin.rdbuf();
    return os.str();
  }
  std::ifstream in(strFile, std::ios::binary);
  if (!in) Fail(strFile, "cannot open for reading");
  std::string s((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) Fail(strFile, "read error");
  return s;
}

void WriteAll(const std::string& strFile, const std::string& strBytes) {
  if (strFile == "-") {
    std::cout.write(strBytes.data(), (std::streamsize)strBytes.size());
    std::cout.flush();
    return;
  }
  std::ofstream out(strFile, std::ios::binary | std::ios::trunc);
  if (!out) Fail(strFile, "cannot open for writing");
  out.write(strBytes.data(), (std::streamsize)strBytes.size());
  out.close();
  if (!out) Fail(strFile, "write error");
}

std::string Latin1ToUtf8(const char* p, size_t n) {
  std::string s;
  s.reserve(n);
  for (size_t i = 0; i < n; ++i) {
    const unsigned char c = (unsigned char)p[i];
    if (c < 0x80) {
      s += (char)c;
    } else {
      s += (char)(0xC0 | (c >> 6));
      s += (char)(0x80 | (c & 0x3F));
    }
  }
  return s;
}

std::string Utf8ToLatin1(const std::string& s, const std::string& strWhere) {
  std::string r;
  r.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    const unsigned char c = (unsigned char)s[i];
    if (c < 0x80) {
      r += (char)c;
    } else if ((c == 0xC2 || c == 0xC3) && i + 1 < s.size() && ((unsigned char)s[i + 1] & 0xC0) == 0x80) {
      r += (char)(((c & 0x03) << 6) | ((unsigned char)s[i + 1] & 0x3F));
      ++i;
    } else {
      throw Failure(strWhere + ": text outside ISO-8859-1 (the library's 8-bit text)");
    }
  }
  return r;
}

}  // namespace ktool

int main(int argc, char** argv) {
  CToolLog log;
  g_pLog = &log;
  KToolsInit(&log);
  ktool::SetBinaryStdio();
  int nExit = 0;
  {
    CLI::App app{"kelvor: inspect and make Kelvor blobs, object XML, digests, GUIDs and dates;\n"
                 "serve a directory over HTTP; run the persistence demo."};
    app.require_subcommand(1);
    app.set_help_all_flag("--help-all", "Every subcommand's help");
    ktool::AddBlobCommands(app);
    ktool::AddXmlCommands(app);
    ktool::AddDigestCommand(app);
    ktool::AddGuidCommands(app);
    ktool::AddDateCommand(app);
    ktool::AddServeCommand(app);
    ktool::AddDemoCommand(app);
    try {
      app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
      nExit = app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
      nExit = app.exit(e);
    } catch (const CLI::ParseError& e) {
      app.exit(e);
      nExit = 2;
    } catch (const ktool::Failure& e) {
      std::cout.flush();
      std::fprintf(stderr, "kelvor: %s\n", e.what());
      nExit = 1;
    } catch (const CKMemoryException&) {
      std::fprintf(stderr, "kelvor: out of memory\n");
      nExit = 1;
    } catch (const std::exception& e) {
      std::fprintf(stderr, "kelvor: %s\n", e.what());
      nExit = 1;
    }
  }
  std::cout.flush();
  KToolsInit(nullptr);
  g_pLog = nullptr;
  return nExit;
}
