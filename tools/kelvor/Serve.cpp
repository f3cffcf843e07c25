// kelvor serve: a directory over the library's HTTP mini server.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>

#include "Console.h"
#include "Tool.h"

namespace fs = std::filesystem;

namespace ktool {
namespace {

fs::path g_root;  // canonical; set before the server starts

const char* ContentType(const fs::path& p) {
  static const struct {
    const char* szExt;
    const char* szType;
  } s_types[] = {
      {".html", "text/html; charset=ISO-8859-1"}, {".htm", "text/html; charset=ISO-8859-1"},
      {".txt", "text/plain; charset=ISO-8859-1"}, {".css", "text/css"},
      {".js", "text/javascript"},                 {".json", "application/json"},
      {".xml", "text/xml; charset=ISO-8859-1"},   {".png", "image/png"},
      {".jpg", "image/jpeg"},                     {".jpeg", "image/jpeg"},
      {".gif", "image/gif"},                      {".svg", "image/svg+xml"},
      {".ico", "image/x-icon"},                   {".pdf", "application/pdf"},
      {".zip", "application/zip"},                {".gz", "application/gzip"},
  };
  std::string strExt = p.extension().string();
  for (char& c : strExt) c = (char)std::tolower((unsigned char)c);
  for (const auto& t : s_types)
    if (strExt == t.szExt) return t.szType;
  return "application/octet-stream";
}

std::string HtmlEscape(const std::string& s) {
  std::string r;
  for (char c : s) {
    switch (c) {
      case '<': r += "&lt;"; break;
      case '>': r += "&gt;"; break;
      case '&': r += "&amp;"; break;
      case '"': r += "&quot;"; break;
      default: r += c;
    }
  }
  return r;
}

std::string UrlEscape(const std::string& s) {
  std::string r;
  char sz[4];
  for (unsigned char c : s) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~' || c == '/') {
      r += (char)c;
    } else {
      std::snprintf(sz, sizeof(sz), "%%%02X", c);
      r += sz;
    }
  }
  return r;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The URL's path decoded once; false for malformed escapes, NUL bytes,
// backslashes and any ".." segment (the refusal does not depend on how the
// dots were written).
bool DecodePath(const std::string& strUrl, std::string& strOut) {
  std::string s = strUrl.substr(0, strUrl.find_first_of("?#"));
  strOut.clear();
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%') {
      if (i + 2 >= s.size()) return false;
      const int h = HexDigit(s[i + 1]), l = HexDigit(s[i + 2]);
      if (h < 0 || l < 0) return false;
      strOut += (char)(h * 16 + l);
      i += 2;
    } else {
      strOut += s[i];
    }
  }
  if (strOut.empty() || strOut[0] != '/') return false;
  if (strOut.find('\0') != std::string::npos || strOut.find('\\') != std::string::npos) return false;
  if (strOut.find(':') != std::string::npos) return false;  // drive letters, streams
  size_t nStart = 0;
  while (nStart <= strOut.size()) {
    const size_t nEnd = std::min(strOut.find('/', nStart), strOut.size());
    if (strOut.compare(nStart, nEnd - nStart, "..") == 0) return false;
    nStart = nEnd + 1;
  }
  return true;
}

bool Inside(const fs::path& p) {
  auto r = g_root.begin();
  auto q = p.begin();
  for (; r != g_root.end(); ++r, ++q)
    if (q == p.end() || *q != *r) return false;
  return true;
}

class CServeClient : public CKHttpMiniClient {
public:
  void DispatchUrl(CKHttpRequest* pRequest, CKString& headers, CKString& body) override {
    const std::string strUrl = pRequest->Url().GetString();
    std::string strPath;
    if (!DecodePath(strUrl, strPath)) return Answer(headers, body, "403 Forbidden", "the path is refused");
    std::error_code ec;
    const fs::path target =
        fs::weakly_canonical(g_root / fs::path(strPath.substr(strPath.find_first_not_of('/') == std::string::npos
                                                                  ? strPath.size()
                                                                  : strPath.find_first_not_of('/'))),
                             ec);
    if (ec) return Answer(headers, body, "404 Not Found", "no such file");
    // Symbolic links are followed, so the resolved place must still be
    // under the root.
    if (!Inside(target)) return Answer(headers, body, "403 Forbidden", "the path leads out of the served directory");
    const fs::file_status st = fs::status(target, ec);
    if (ec || !fs::exists(st)) return Answer(headers, body, "404 Not Found", "no such file");
    if (fs::is_directory(st)) return Listing(headers, body, strPath, target);
    if (!fs::is_regular_file(st)) return Answer(headers, body, "403 Forbidden", "not a regular file");
    std::ifstream in(target, std::ios::binary);
    if (!in) return Answer(headers, body, "403 Forbidden", "the file cannot be read");
    const std::string strData((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Send(headers, body, "200 OK", ContentType(target), strData);
  }

private:
  void Answer(CKString& headers, CKString& body, const char* szStatus, const char* szWhy) {
    const std::string s = std::string("<!DOCTYPE html>\n<html><head><title>") + szStatus +
                          "</title></head><body><h1>" + szStatus + "</h1><p>" + szWhy + "</p></body></html>\n";
    Send(headers, body, szStatus, "text/html; charset=ISO-8859-1", s);
  }

  void Listing(CKString& headers, CKString& body, std::string strPath, const fs::path& dir) {
    if (strPath.back() != '/') strPath += '/';
    std::vector<std::pair<std::string, bool>> entries;
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
      entries.emplace_back(it->path().filename().string(), it->is_directory(ec));
    std::sort(entries.begin(), entries.end());
    std::string s = "<!DOCTYPE html>\n<html><head><meta charset=\"ISO-8859-1\"><title>Index of " +
                    HtmlEscape(strPath) + "</title></head><body>\n<h1>Index of " + HtmlEscape(strPath) +
                    "</h1>\n<ul>\n";
    if (strPath != "/") s += "<li><a href=\"../\">../</a></li>\n";
    for (const auto& e : entries) {
      const std::string strName = e.first + (e.second ? "/" : "");
      s += "<li><a href=\"" + UrlEscape(strPath + strName) + "\">" + HtmlEscape(strName) + "</a></li>\n";
    }
    s += "</ul>\n</body></html>\n";
    Send(headers, body, "200 OK", "text/html; charset=ISO-8859-1", s);
  }

  // The library's headers with our status and type. Its answer is a text,
  // so a body holding NUL bytes is sent here directly and the connection
  // closed: the library's own write then finds nothing to write to.
  void Send(CKString& headers, CKString& body, const char* szStatus, const char* szType, const std::string& strData) {
    std::string h = headers.GetString();
    const size_t nEol = h.find("\r\n");
    h = "HTTP/1.1 " + std::string(szStatus) + (nEol == std::string::npos ? std::string("\r\n") : h.substr(nEol));
    const size_t nType = h.find("Content-Type: ");
    if (nType != std::string::npos) h.erase(nType, h.find("\r\n", nType) + 2 - nType);
    h += std::string("Content-Type: ") + szType + "\r\nContent-Length: " + std::to_string(strData.size()) + "\r\n";
    if (strData.find('\0') == std::string::npos) {
      headers = h.c_str();
      body = strData.c_str();
      return;
    }
    const std::string strAll = h + "\r\n" + strData;
    Write((unsigned char*)const_cast<char*>(strAll.data()), (unsigned long)strAll.size(), 65536);
    CKSocket closer(Detach());  // closes the connection when it goes
    headers = "";
    body = "";
  }
};

class CServeServer : public CKHttpMiniServer {
public:
  CKHttpMiniClient* GetNewClient() override { return new (std::nothrow) CServeClient(); }
};

void Serve(int nPort, const std::string& strRoot) {
  std::error_code ec;
  g_root = fs::canonical(strRoot, ec);
  if (ec || !fs::is_directory(g_root)) Fail(strRoot, "not a directory");
  if (!NetStartup()) throw Failure("the socket run-time did not start");
  InstallStopHandler();
  {
    CServeServer server;
    server.SetPort((unsigned short)nPort);
    if (!server.StartServer()) {
      NetCleanup();
      Fail("port " + std::to_string(nPort), "cannot listen (" + std::string(server.LastError().GetString()) + ")");
    }
    std::cout << "http://127.0.0.1:" << server.Port() << "/" << std::endl;
    while (!StopRequested()) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    server.StopAndWait(5);
  }
  NetCleanup();
  std::cerr << "kelvor: stopped" << std::endl;
}

}  // namespace

void AddServeCommand(CLI::App& app) {
  CLI::App* c = app.add_subcommand("serve", "Serve a directory over HTTP (the library's mini server)");
  static int s_nPort = 8080;
  static std::string s_strRoot = ".";
  c->add_option("--port", s_nPort, "Port (0: any free one; the bound port is printed)")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  c->add_option("--root", s_strRoot, "Directory to serve")->capture_default_str();
  c->footer("Prints http://127.0.0.1:PORT/ and serves until Ctrl-C. Paths with \"..\" (in any\n"
            "spelling) and symbolic links leading out of the root are refused (403).");
  c->callback([] { Serve(s_nPort, s_strRoot); });
}

}  // namespace ktool
