// kelvor digest, guid and date: the library's digests, GUID text forms and
// date forms.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <vector>

#include <CLI/CLI.hpp>

#include "Console.h"
#include "Tool.h"

namespace ktool {
namespace {

// ---------------------------------------------------------------- digest
struct Digester {
  bool bSha1;
  KMd5Data md5;
  KSha1Data sha1;
  explicit Digester(bool b) : bSha1(b) {
    if (bSha1)
      KSha1Init(&sha1);
    else
      KMd5Init(&md5);
  }
  void Update(const unsigned char* p, size_t n) {
    if (bSha1)
      KSha1Update(&sha1, (unsigned)n, p);
    else
      KMd5Update(&md5, p, n);
  }
  std::vector<unsigned char> Final() {
    std::vector<unsigned char> d(bSha1 ? SHA1_DIGEST_SIZE : MD5_DIGEST_SIZE);
    if (bSha1)
      KSha1Digest(&sha1, SHA1_DIGEST_SIZE, d.data());
    else
      KMd5Final(&md5, d.data());
    return d;
  }
};

std::string DigestText(std::vector<unsigned char>& d, bool bBase32) {
  if (bBase32) return KStrToBase32(d.data(), (int)d.size()).GetString();
  std::string s = KStrToHex(d.data(), (int)d.size()).GetString();
  for (char& c : s) c = (char)std::tolower((unsigned char)c);  // md5sum's case
  return s;
}

// Digest of one file read in 1 MiB pieces; a progress line on a terminal
// once the file has taken more than a second.
std::string DigestFile(const std::string& strFile, bool bSha1, bool bBase32, bool bTerminal) {
  std::ifstream in;
  std::istream* pIn = &std::cin;
  unsigned long long nTotal = 0;
  if (strFile != "-") {
    std::error_code ec;
    if (std::filesystem::is_directory(strFile, ec)) Fail(strFile, "is a directory");
    in.open(strFile, std::ios::binary);
    if (!in) Fail(strFile, "cannot open for reading");
    nTotal = std::filesystem::file_size(strFile, ec);
    if (ec) nTotal = 0;
    pIn = &in;
  }
  Digester dg(bSha1);
  std::vector<char> buf(1 << 20);
  const auto start = std::chrono::steady_clock::now();
  unsigned long long nDone = 0;
  bool bShown = false;
  while (*pIn) {
    pIn->read(buf.data(), (std::streamsize)buf.size());
    const std::streamsize n = pIn->gcount();
    if (n <= 0) break;
    dg.Update((const unsigned char*)buf.data(), (size_t)n);
    nDone += (unsigned long long)n;
    if (bTerminal && std::chrono::steady_clock::now() - start > std::chrono::seconds(1)) {
      if (nTotal)
        std::fprintf(stderr, "\r%s: %llu%% of %llu MiB", strFile.c_str(), nDone * 100 / nTotal, nTotal >> 20);
      else
        std::fprintf(stderr, "\r%s: %llu MiB", strFile.c_str(), nDone >> 20);
      bShown = true;
    }
  }
  if (pIn->bad()) Fail(strFile, "read error");
  if (bShown) std::fprintf(stderr, "\r\033[K");
  std::vector<unsigned char> d = dg.Final();
  return DigestText(d, bBase32);
}

// ---------------------------------------------------------------- guid
std::string Bytes(const unsigned char* p) {
  std::string s;
  char sz[4];
  for (int i = 0; i < 16; ++i) {
    std::snprintf(sz, sizeof(sz), i ? " %02X" : "%02X", p[i]);
    s += sz;
  }
  return s;
}

void ShowGuid(const std::string& strText) {
  CKGuid g;
  std::string s = strText;
  if (s.size() == 36 && s[0] != '{') s = "{" + s + "}";  // the braced form without its braces
  g.FromStrEx(s.c_str());
  if (g.IsEmpty() && s.find_first_not_of("{}-0") != std::string::npos)
    throw Failure(strText + ": not a GUID (braced {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX} or 32 hex digits)");
  unsigned char mem[16], le[16], be[16];
  std::memcpy(mem, static_cast<const GUID*>(&g), 16);
  g.ToLittleEndian(le);
  // RFC 4122 order: the three first fields big-endian, then Data4.
  for (int i = 0; i < 4; ++i) be[i] = (unsigned char)(g.Data1 >> (24 - 8 * i));
  be[4] = (unsigned char)(g.Data2 >> 8);
  be[5] = (unsigned char)g.Data2;
  be[6] = (unsigned char)(g.Data3 >> 8);
  be[7] = (unsigned char)g.Data3;
  std::memcpy(be + 8, g.Data4, 8);
  std::cout << "braced:      " << ((CKString)g).GetString() << "\n"
            << "plain:       " << g.Str2().GetString() << "\n"
            << "numeric 10:  " << g.Str3(10).GetString() << "\n"
            << "numeric 16:  " << g.Str3(16).GetString() << "\n"
            << "memory:      " << Bytes(mem) << "  (Windows layout, fields little-endian)\n"
            << "big-endian:  " << Bytes(be) << "  (RFC 4122)\n"
            << "reversed:    " << Bytes(le) << "  (ToLittleEndian)\n";
}

// ---------------------------------------------------------------- date
bool AllDigits(const std::string& s, size_t nFrom, size_t nCount) {
  if (s.size() < nFrom + nCount) return false;
  for (size_t i = nFrom; i < nFrom + nCount; ++i)
    if (s[i] < '0' || s[i] > '9') return false;
  return true;
}

void ShowDate(const std::string& strText) {
  CKDateTime d;
  const char* szForm = nullptr;
  if (strText == "now") {
    d.CurrentDate();
    szForm = "current local time";
  } else if (strText.find('/') != std::string::npos) {
    d = strText.find(' ') != std::string::npos ? KTimeParseDateTime(strText.c_str()) : KTimeParseDate(strText.c_str());
    szForm = "d/m/yyyy [h:m]";
  } else if (AllDigits(strText, 0, 4) && strText.size() > 4 && strText[4] == '-') {
    d = KTimeFromMySql(strText.c_str());
    szForm = "yyyy-mm-dd [hh:mm:ss]";
  } else if (!strText.empty() && strText.find_first_not_of("0123456789.-+eE") == std::string::npos) {
    d = KTimeFromStoredStr(strText.c_str());
    szForm = "stored day number";
    if (d.GetYear() == -1) d.Empty();  // the invalid date of a 0.0 text
  }
  if (!szForm || d.IsNull())
    throw Failure(strText +
                  ": not a date (forms: yyyy-mm-dd[ hh:mm:ss], d/m/yyyy[ h:m], a stored day number, now)");
  std::cout << "read as:     " << szForm << "\n"
            << "mysql:       " << d.FormatMySql().GetString() << "\n"
            << "short:       " << d.FormatShort().GetString() << "\n"
            << "text:        " << d.Format().GetString() << "\n"
            << "zero-padded: " << d.FormatZero().GetString() << "\n"
            << "minutes:     " << d.Format2().GetString() << "\n"
            << "month:       " << d.GetStrMonth().GetString() << "\n"
            << "http:        " << d.FormatHttp(TRUE).GetString() << "\n"
            << "http (850):  " << d.FormatHttp2(TRUE).GetString() << "\n"
            << "stored:      " << KTimeToStoredStr(d).GetString() << "\n";
}

}  // namespace

void AddDigestCommand(CLI::App& app) {
  CLI::App* c = app.add_subcommand("digest", "MD5 (default) or SHA-1 of files, in md5sum's layout");
  static std::vector<std::string> s_files;
  static bool s_bSha1 = false, s_bBase32 = false;
  c->add_option("FILE", s_files, "Files (- for standard input)")->required();
  c->add_flag("--sha1", s_bSha1, "SHA-1 instead of MD5");
  c->add_flag("--base32", s_bBase32, "Base32 text instead of hex");
  c->footer("Prints \"<digest>  <name>\" per file. A file that cannot be read is reported and the\n"
            "others are still digested; the exit status is then 1.");
  c->callback([] {
    const bool bTerminal = StderrIsTerminal();
    std::string strFirstError;
    for (const std::string& f : s_files) {
      try {
        const std::string s = DigestFile(f, s_bSha1, s_bBase32, bTerminal);
        std::cout << s << "  " << f << "\n";
      } catch (const Failure& e) {
        std::cout.flush();
        if (strFirstError.empty()) strFirstError = e.what();
        else std::fprintf(stderr, "kelvor: %s\n", e.what());
      }
    }
    if (!strFirstError.empty()) throw Failure(strFirstError);
  });
}

void AddGuidCommands(CLI::App& app) {
  CLI::App* guid = app.add_subcommand("guid", "Make GUIDs or show one in every text form and byte order");
  guid->require_subcommand(1);
  CLI::App* n = guid->add_subcommand("new", "Print N new GUIDs (braced form)");
  static int s_nCount = 1;
  n->add_option("N", s_nCount, "How many (default 1)")->check(CLI::Range(1, 1000000));
  n->callback([] {
    for (int i = 0; i < s_nCount; ++i) std::cout << ((CKString)CKGuid(TRUE)).GetString() << "\n";
  });
  CLI::App* show = guid->add_subcommand("show", "Show a GUID in the braced, plain and numeric forms and its bytes");
  static std::string s_strText;
  show->add_option("TEXT", s_strText, "Braced or plain (32 hex digits) GUID")->required();
  show->callback([] { ShowGuid(s_strText); });
}

void AddDateCommand(CLI::App& app) {
  CLI::App* c = app.add_subcommand("date", "Read a date in any of the library's forms and print all forms");
  static std::string s_strText;
  c->add_option("TEXT", s_strText, "yyyy-mm-dd[ hh:mm:ss], d/m/yyyy[ h:m], a stored day number or now")
      ->required();
  c->callback([] { ShowDate(s_strText); });
}

}  // namespace ktool
