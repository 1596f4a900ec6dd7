// Runs the real klipora binary for end-to-end tests and captures its output.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace klipora::testing {

struct CommandResult {
  int exitCode = -1;
  std::string out;
  std::string err;
};

inline std::string shellQuote(const std::string& s) {
  std::string q = "'";
  for (char c : s) {
    if (c == '\'') {
      q += "'\\''";
    } else {
      q += c;
    }
  }
  return q + "'";
}

// Runs `klipora --home <home> <args…>` with `environment` ("NAME=value …") in front.
inline CommandResult runKlipora(const std::string& home, const std::vector<std::string>& args,
                                const std::string& environment = "") {
  std::string errFile = home + ".stderr";
  std::string command = environment + " " + shellQuote(KLIPORA_BINARY);
  for (const auto& a : args) command += " " + shellQuote(a);
  command += " --home " + shellQuote(home) + " 2>" + shellQuote(errFile) + " </dev/null";
  CommandResult result;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return result;
  char buffer[4096];
  while (size_t n = fread(buffer, 1, sizeof buffer, pipe)) result.out.append(buffer, n);
  int status = pclose(pipe);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  std::ifstream err(errFile);
  std::stringstream s;
  s << err.rdbuf();
  result.err = s.str();
  std::remove(errFile.c_str());
  return result;
}

}  // namespace klipora::testing
