#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <vector>

namespace velquist::testing {

/// Checks, over every pair of `values`, that equal values hash equal (the one promise a
/// hash makes), and that each value equals itself.
template <class T>
void expectHashAgreesWithEquality(const std::vector<T>& values) {
  const std::hash<T> hash;
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_TRUE(values[i] == values[i]) << "value " << i << " is not equal to itself";
    for (std::size_t j = 0; j < values.size(); ++j) {
      if (values[i] == values[j]) {
        EXPECT_EQ(hash(values[i]), hash(values[j])) << "values " << i << " and " << j << " are equal";
      }
    }
  }
}

}  // namespace velquist::testing
