// A program outside the tree that uses the installed library.
#include <kelvor/Kelvor.h>

#include <cstdio>

int main() {
  CKString s("consumer");
  s += " ok";
  CKString joined = KAnd("[", s, "]");
  std::printf("%s\n", (const char*)joined);
  return joined == "[consumer ok]" ? 0 : 1;
}
