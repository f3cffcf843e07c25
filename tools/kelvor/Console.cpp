#include "Console.h"

#include <atomic>

namespace {
std::atomic<bool> g_bStop(false);
}

namespace ktool {
bool StopRequested() { return g_bStop.load(); }
}  // namespace ktool

// ---------------------------------------------------------------- POSIX
#if !defined(_WIN32)
#  include <signal.h>
#  include <unistd.h>

namespace {
extern "C" void OnStopSignal(int) { g_bStop.store(true); }
}  // namespace

namespace ktool {

bool InstallStopHandler() {
  struct sigaction sa = {};
  sa.sa_handler = OnStopSignal;
  sigemptyset(&sa.sa_mask);
  return sigaction(SIGINT, &sa, nullptr) == 0 && sigaction(SIGTERM, &sa, nullptr) == 0;
}

bool StderrIsTerminal() { return isatty(STDERR_FILENO) == 1; }
void SetBinaryStdio() {}
bool NetStartup() {
  // A peer that goes away mid-answer must not end the process.
  return signal(SIGPIPE, SIG_IGN) != SIG_ERR;
}
void NetCleanup() {}

}  // namespace ktool

// ---------------------------------------------------------------- Win32
#else
#  include <winsock2.h>
#  include <windows.h>
#  include <fcntl.h>
#  include <io.h>
#  include <stdio.h>

namespace {
BOOL WINAPI OnConsoleEvent(DWORD nEvent) {
  switch (nEvent) {
    case CTRL_C_EVENT:
    case CTRL_BREAK_EVENT:
    case CTRL_CLOSE_EVENT:
      g_bStop.store(true);
      return TRUE;
    default: return FALSE;
  }
}
}  // namespace

namespace ktool {

bool InstallStopHandler() { return SetConsoleCtrlHandler(OnConsoleEvent, TRUE) != 0; }
bool StderrIsTerminal() { return _isatty(_fileno(stderr)) != 0; }
void SetBinaryStdio() {
  _setmode(_fileno(stdin), _O_BINARY);
  _setmode(_fileno(stdout), _O_BINARY);
}
bool NetStartup() {
  WSADATA data;
  return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}
void NetCleanup() { WSACleanup(); }

}  // namespace ktool
#endif
