// The mini server answering one small page, for bench/http_bench.sh: binds
// an ephemeral loopback port, prints it on the first line of its output and
// serves until its standard input is closed.
#include <cstdio>

#include <base/tools/KHttpRequest.h>
#include <base/tools/KStr.h>

#include "http_page.h"

namespace {

// The length lets the load generator see the end of each answer without
// waiting for the close (both servers then send the same kind of answer).
class CPageClient : public CKHttpMiniClient {
public:
  void DispatchUrl(CKHttpRequest*, CKString& headers, CKString& body) override {
    static const CKString s_strLength(KAnd("Content-Length: ", KStr((int)sizeof(kBenchPage) - 1), "\r\n"));
    headers += s_strLength.GetString();
    body = kBenchPage;
  }
};

class CPageServer : public CKHttpMiniServer {
public:
  CKHttpMiniClient* GetNewClient() override { return new CPageClient; }
};

}  // namespace

int main() {
  CPageServer server;
  server.SetPort(0);
  if (!server.StartServer()) {
    fprintf(stderr, "cannot start the server\n");
    return 1;
  }
  printf("%u\n", (unsigned)server.Port());
  fflush(stdout);
  while (getchar() != EOF) {
  }
  server.StopAndWait(5);
  return 0;
}
