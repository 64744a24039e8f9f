#include <iostream>

int main() {
  std::cout << "0.25\n";
  return 0;
}
