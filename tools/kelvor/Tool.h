// Shared pieces of the kelvor command-line tool.
#ifndef KELVOR_TOOL_H
#define KELVOR_TOOL_H

#include <stdexcept>
#include <string>

#include <kelvor/Kelvor.h>

namespace CLI {
class App;
}

namespace ktool {

// A failure of a subcommand: main prints "kelvor: <what>" and exits 1.
struct Failure : std::runtime_error {
  explicit Failure(const std::string& s) : std::runtime_error(s) {}
};

// The last library log line (assertions, "ERROR => " lines), to explain a
// failure; empty when the library said nothing since the last call.
std::string TakeLibraryMessage();
// "file: reason" plus the library's own words when it logged any.
[[noreturn]] void Fail(const std::string& strFile, const std::string& strReason);

// Whole file (or standard input for "-") as bytes.
std::string ReadAll(const std::string& strFile);
void WriteAll(const std::string& strFile, const std::string& strBytes);

// The library's 8-bit text (ISO-8859-1) and UTF-8, for JSON.
std::string Latin1ToUtf8(const char* p, size_t n);
// Throws Failure when a character is outside ISO-8859-1.
std::string Utf8ToLatin1(const std::string& s, const std::string& strWhere);

// Subcommand set-up: each adds its subcommands to app.
void AddBlobCommands(CLI::App& app);
void AddXmlCommands(CLI::App& app);
void AddDigestCommand(CLI::App& app);
void AddGuidCommands(CLI::App& app);
void AddDateCommand(CLI::App& app);
void AddServeCommand(CLI::App& app);
void AddDemoCommand(CLI::App& app);

}  // namespace ktool

#endif  // KELVOR_TOOL_H
