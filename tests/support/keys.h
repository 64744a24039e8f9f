#pragma once

#include <string>

/// What a terminal sends for the keys that are not letters.
namespace test_support::keys {

inline const std::string up = "\033[A";
inline const std::string down = "\033[B";
inline const std::string right = "\033[C";
inline const std::string left = "\033[D";
inline const std::string home = "\033[1~";
inline const std::string insert = "\033[2~";
inline const std::string del = "\033[3~";
inline const std::string end = "\033[4~";
inline const std::string pageUp = "\033[5~";
inline const std::string pageDown = "\033[6~";
inline const std::string returnKey = "\r";
inline const std::string tab = "\t";
inline const std::string backspace = "\177";

/// Control and `letter`.
inline std::string ctrl(char letter) {
  return std::string(1, static_cast<char>(letter & 0x1f));
}

}  // namespace test_support::keys
