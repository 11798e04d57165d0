#include "explain.h"

#include <cstdio>

namespace TAVU::collector {

void Explain(std::string_view text) {
  std::string line = "tavu_collector: ";
  line += text;
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);  // not every C runtime leaves it unbuffered
}

void ExplainPeer(std::string_view transport, std::string_view peer, std::string_view text) {
  std::string line(transport);
  line += ' ';
  line += peer;
  line += ": ";
  line += text;
  Explain(line);
}

}  // namespace TAVU::collector
