#include <iostream>

#include "velquist/storekit/product/product.h"

int main() {
  int unused = 0;  // deliberately warns under -Wall
  const auto text = velquist::storekit::displayPrice(velquist::foundation::Decimal::fromString("9.99").value(),
                                                     velquist::foundation::Locale("en_US"),
                                                     velquist::foundation::FloatingPointRoundingRule::down);
  std::cout << text.value_or("(none)") << "\n";
  return text == "$9.99" ? 0 : 1;
}
