// The C++ library's own handler for an exception that nobody catches prints its name, for which it
// brings along a demangler and a second printf, together half as large as the whole library here.
// Defined in this place, the name is taken and theirs stay outside.
#include <cstdlib>
#include <exception>

namespace __gnu_cxx {

void __verbose_terminate_handler() {
  std::abort();
}

}  // namespace __gnu_cxx
