// Setting and removing environment variables from tests, on every platform.
#ifndef KELVOR_KTESTENV_H
#define KELVOR_KTESTENV_H

#include <cstdlib>

// Null removes the variable.
inline void KTestSetEnv(const char* szName, const char* szValue) {
#if defined(_WIN32)
  _putenv_s(szName, szValue ? szValue : "");
#else
  if (szValue)
    setenv(szName, szValue, 1);
  else
    unsetenv(szName);
#endif
}

#endif  // KELVOR_KTESTENV_H
