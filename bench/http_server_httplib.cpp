// cpp-httplib answering the same page as http_server_kelvor.cpp, for
// bench/http_bench.sh: prints its ephemeral loopback port, serves until its
// standard input is closed.
#include <cstdio>
#include <thread>

#include <httplib.h>

#include "http_page.h"

int main() {
  httplib::Server server;
  server.Get("/", [](const httplib::Request&, httplib::Response& res) {
    res.set_content(kBenchPage, "text/html; charset=ISO-8859-1");
  });
  const int nPort = server.bind_to_any_port("127.0.0.1");
  if (nPort <= 0) {
    fprintf(stderr, "cannot bind\n");
    return 1;
  }
  printf("%d\n", nPort);
  fflush(stdout);
  std::thread loop([&]() { server.listen_after_bind(); });
  while (getchar() != EOF) {
  }
  server.stop();
  loop.join();
  return 0;
}
