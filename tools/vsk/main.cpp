#include <iostream>

int main() {
  std::cout << "vsk\n";
  return 0;
}
