// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_NEAREST_H
#define KEMFFDC_NEAREST_H

#include <string>
#include <vector>

namespace Kemffdc {

// The word of `known` that somebody may have meant by `given`: at most one mistake for each three
// letters begun, where a letter too many, too few, another one, and two that are exchanged are
// one mistake each. Letters count without case. Empty where none is that near.
std::string Nearest(const std::string& given, const std::vector<std::string>& known);

// " Did you mean --user?", with the blank; empty where there is no such word.
std::string DidYouMean(const std::string& given, const std::vector<std::string>& known);

}  // namespace Kemffdc

#endif
