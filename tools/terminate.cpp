#include <cstdlib>

// What ends a program after an exception that is not caught. The one of the C++ library prints the
// exception's type, for which it contains a decoder of names, as large as half of this program's
// own code.
namespace __gnu_cxx {

void __verbose_terminate_handler();

void __verbose_terminate_handler() {
  std::abort();
}

}  // namespace __gnu_cxx
