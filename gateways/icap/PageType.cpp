// SPDX-License-Identifier: Apache-2.0
#include "gateways/icap/PageType.h"

#include <algorithm>
#include <array>

namespace zeph::icap {

PageType PageTypeOf(const Headers& response) {
  const std::optional<std::string_view> value = response.Find("content-type");
  if (!value) return PageType::kUntold;
  const std::string type = Lowered(Trimmed(value->substr(0, value->find(';'))));
  if (type == "text/html" || type == "application/xhtml+xml") return PageType::kPage;
  const bool saysNothing = type.find('/') == std::string::npos || type == "unknown/unknown" ||
                           type == "application/unknown" || type == "*/*";
  return saysNothing ? PageType::kUntold : PageType::kOther;
}

bool LooksLikePage(std::string_view front) {
  constexpr std::array<std::string_view, 17> kMarks = {"!doctype html", "html", "head", "script", "iframe", "h1", "div",
                                                       "font", "table", "a", "style", "title", "b", "body", "br", "p", "form"};
  if (front.starts_with("\xEF\xBB\xBF")) front.remove_prefix(3);
  front.remove_prefix(std::min(front.find_first_not_of(" \t\r\n\f"), front.size()));
  if (!front.starts_with('<')) return false;
  front.remove_prefix(1);
  if (front.starts_with("!--")) return true;
  return std::ranges::any_of(kMarks, [&](std::string_view mark) {
    return front.size() > mark.size() && (front[mark.size()] == ' ' || front[mark.size()] == '>') &&
           Lowered(front.substr(0, mark.size())) == mark;
  });
}

}  // namespace zeph::icap
