// CKTestTempDir: a directory of the test's own, made fresh under the system's
// temporary directory and removed with everything in it when the object goes,
// also when an assertion ends the test early.
#ifndef KELVOR_KTESTTEMP_H
#define KELVOR_KTESTTEMP_H

#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>

class CKTestTempDir {
public:
  CKTestTempDir() {
    namespace fs = std::filesystem;
    std::random_device rd;
    const fs::path base = fs::temp_directory_path();
    for (int i = 0; i < 100; ++i) {
      const fs::path p = base / ("kelvor_test_" + std::to_string(rd()) + std::to_string(rd()));
      std::error_code ec;
      // create_directory is false for a name that exists: never reuse one.
      if (fs::create_directory(p, ec) && !ec) {
        m_path = p.string();
        return;
      }
    }
    throw std::runtime_error("CKTestTempDir: cannot make a directory");
  }
  ~CKTestTempDir() {
    std::error_code ec;
    std::filesystem::remove_all(m_path, ec);
  }
  CKTestTempDir(const CKTestTempDir&) = delete;
  CKTestTempDir& operator=(const CKTestTempDir&) = delete;

  const std::string& Dir() const { return m_path; }
  // The path of a file named szName inside the directory.
  std::string Path(const std::string& strName) const { return m_path + "/" + strName; }

private:
  std::string m_path;
};

#endif  // KELVOR_KTESTTEMP_H
