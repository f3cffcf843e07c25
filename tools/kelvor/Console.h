// The few operating-system services the tool needs beyond the library:
// Ctrl-C / termination requests, terminal detection, binary standard
// streams and the socket run-time start-up. Console.cpp holds the POSIX and
// the Win32 branches.
#ifndef KELVOR_TOOL_CONSOLE_H
#define KELVOR_TOOL_CONSOLE_H

namespace ktool {

// Installs the handler; StopRequested() becomes true on SIGINT/SIGTERM
// (Ctrl-C, Ctrl-Break, console close on Windows).
bool InstallStopHandler();
bool StopRequested();
// Whether standard error is a terminal (progress lines go only there).
bool StderrIsTerminal();
// Standard input and output carry bytes unchanged (no CR LF translation).
void SetBinaryStdio();
// The socket run-time (Windows Sockets 2); nothing elsewhere.
bool NetStartup();
void NetCleanup();

}  // namespace ktool

#endif  // KELVOR_TOOL_CONSOLE_H
