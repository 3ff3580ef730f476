// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "documents/html/Tree.h"

namespace zeph::html {

/// The tree as UTF-8 text in the form that the html5lib tree-construction tests expect: one node a line ("| <html>"),
/// two blanks deeper for each level, attributes in order of their names below their element, "content" above what is
/// in a template.
[[nodiscard]] std::string PrintTree(const Tree& tree);
/// The same in pieces: a deep tree's printed form is far longer than the page.
void PrintTree(const Tree& tree, const std::function<void(std::string_view)>& write);

}  // namespace zeph::html
