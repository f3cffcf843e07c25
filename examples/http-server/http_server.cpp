// A mini HTTP server: the application derives a client class whose
// DispatchUrl answers each request, and a server class that hands out those
// clients. Usage: http_server [--port N] [--once]
//   --port N  listen on port N (default 0: any free port, printed at start)
//   --once    stop after the first page has been served (for scripted runs)
// Without --once it serves until a line (or the end of input) arrives on stdin.
#include <kelvor/Kelvor.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

namespace {

std::atomic<int> g_nPagesServed{0};

// The URL-decoded value of one "name=value" pair of the query, empty when
// absent. (CKHttpRequest::Value reads the words after the target on the
// request line, not the query.)
CKString QueryValue(const std::string& strUrl, const char* szName) {
  const size_t q = strUrl.find('?');
  if (q == std::string::npos) return CKString();
  const std::string strKey = std::string(szName) + "=";
  size_t at = q + 1;
  while (at <= strUrl.size()) {
    const size_t end = std::min(strUrl.find('&', at), strUrl.size());
    if (strUrl.compare(at, strKey.size(), strKey) == 0) {
      CKString strValue(strUrl.substr(at + strKey.size(), end - at - strKey.size()).c_str());
      HttpRequestParseString(strValue);  // '+' and %HH
      return strValue;
    }
    at = end + 1;
  }
  return CKString();
}

// One connection: the library reads and parses the request, then asks for
// the answer. headers arrives holding the server's default block.
class CPageClient : public CKHttpMiniClient {
public:
  void DispatchUrl(CKHttpRequest* pRequest, CKString& headers, CKString& body) override {
    std::printf("  %s %s from %s\n", (const char*)pRequest->Type(), (const char*)pRequest->Url(),
                (const char*)GetAddr());
    std::fflush(stdout);
    // Url() is the whole request target, query included.
    const std::string strUrl = (const char*)pRequest->Url();
    const std::string strPath = strUrl.substr(0, strUrl.find('?'));
    if (strPath == "/") {
      body = "<html><body><h1>Hello from Kelvor</h1><p>Try <a href=\"/hello?name=you\">/hello</a>"
             ".</p></body></html>\n";
    } else if (strPath == "/hello") {
      CKString strName = QueryValue(strUrl, "name");
      if (strName.GetLength() == 0) strName = "stranger";
      body = KAnd("Hello, ", strName, "!\n");
    } else {
      headers = "HTTP/1.1 404 Not Found\r\nConnection: close\r\n"
                "Content-Type: text/plain; charset=ISO-8859-1\r\n";
      body = "no such page\n";
      return;
    }
    g_nPagesServed++;
  }
};

class CPageServer : public CKHttpMiniServer {
public:
  CKHttpMiniClient* GetNewClient() override { return new CPageClient; }
};

}  // namespace

int main(int argc, char** argv) {
  unsigned short nPort = 0;
  bool bOnce = false;
  for (int i = 1; i < argc; i++) {
    if (std::strcmp(argv[i], "--once") == 0) {
      bOnce = true;
    } else if (std::strcmp(argv[i], "--port") == 0 && i + 1 < argc) {
      nPort = (unsigned short)std::atoi(argv[++i]);
    } else {
      std::fprintf(stderr, "usage: %s [--port N] [--once]\n", argv[0]);
      return 2;
    }
  }

  CPageServer server;
  server.SetPort(nPort);
  if (!server.StartServer()) {
    std::fprintf(stderr, "cannot listen on port %u: %s\n", (unsigned)nPort,
                 (const char*)server.LastError());
    return 1;
  }
  // Scripts read the port from this line.
  std::printf("listening on http://127.0.0.1:%u/\n", (unsigned)server.Port());
  std::fflush(stdout);

  if (bOnce) {
    while (g_nPagesServed.load() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  } else {
    std::getchar();
  }
  // Waits for the connection threads, so the last answer is complete.
  server.StopAndWait(5);
  std::printf("stopped after %d page(s)\n", g_nPagesServed.load());
  return 0;
}
