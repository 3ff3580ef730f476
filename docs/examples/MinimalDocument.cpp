// SPDX-License-Identifier: Apache-2.0
// A document for the engine, made from whatever you have: here a list of elements in source order. Shows each rule of
// the interface once; docs/integration.md tells the rest.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/Document.h"

namespace {

/// What your side knows of an element.
struct Element {
  std::u16string tag;                                        ///< upper case, "!" for a comment
  std::map<std::u16string, std::u16string> attributes = {};  ///< names in lower case
  std::u16string text = {};                                  ///< as a reader sees it
  std::u16string markup = {};                                ///< what stands inside it
  std::size_t form = 0;                                      ///< position of the form that it lies in, plus 1; 0 none
};

std::u16string Lower(std::u16string_view text) {
  std::u16string lower(text);
  for (char16_t& c : lower) c = c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c;
  return lower;
}

class Document;

/// A list of elements, by their positions. The engine walks lists while it asks for others, so each stays where it is
/// until the document goes.
class ElementList final : public zeph::IHTMLElementCollection {
 public:
  explicit ElementList(Document& document) : document_(document) {}
  zeph::NumberAnswer get_length() noexcept override { return {0, static_cast<std::int32_t>(positions.size())}; }
  zeph::ObjectAnswer item(std::int32_t index) noexcept override;
  zeph::CollectionAnswer tags(std::u16string_view tagName) noexcept override;

  std::vector<std::size_t> positions;

 private:
  Document& document_;
};

// An interface is a small object of its own where two of them have an operation of the same name, as get_href.
struct Anchor final : zeph::IHTMLAnchorElement {
  explicit Anchor(const Element& element) : element(element) {}
  zeph::TextAnswer get_href() noexcept override {
    const auto href = element.attributes.find(u"href");  // your side makes it absolute
    if (href == element.attributes.end()) return {};     // success, and no text
    return {0, href->second};
  }
  const Element& element;
};

struct Image final : zeph::IHTMLImgElement {
  explicit Image(const Element& element) : element(element) {}
  zeph::TextAnswer get_src() noexcept override {
    const auto src = element.attributes.find(u"src");
    if (src == element.attributes.end()) return {};
    return {0, src->second};
  }
  // Sizes that you don't know are 0.
  zeph::NumberAnswer get_width() noexcept override { return {}; }
  zeph::NumberAnswer get_height() noexcept override { return {}; }
  const Element& element;
};

/// An element to the engine. Lent texts are views into the Element, which stays.
class ElementObject final : public zeph::DocumentObject, public zeph::IHTMLElement, public zeph::IHTMLFormElement {
 public:
  ElementObject(Document& document, const Element& element, std::size_t position)
      : document_(document), element_(element), position_(position), anchor_(element), image_(element) {}

  // What isn't overridden here, this document can't answer: the engine goes on without it.
  zeph::IHTMLElement* QueryElement() noexcept override { return this; }
  zeph::IHTMLFormElement* QueryForm() noexcept override { return element_.tag == u"FORM" ? this : nullptr; }
  zeph::IHTMLAnchorElement* QueryAnchor() noexcept override { return element_.tag == u"A" ? &anchor_ : nullptr; }
  zeph::IHTMLImgElement* QueryImg() noexcept override { return element_.tag == u"IMG" ? &image_ : nullptr; }

  zeph::AttributeAnswer getAttribute(std::u16string_view name) noexcept override {
    const auto attribute = element_.attributes.find(Lower(name));
    if (attribute == element_.attributes.end()) return {};
    return {0, {zeph::AttributeValue::Kind::kString, attribute->second, 0}};
  }
  zeph::TextAnswer get_tagName() noexcept override { return {0, element_.tag}; }
  zeph::TextAnswer get_innerHTML() noexcept override { return {0, element_.markup}; }
  zeph::TextAnswer get_innerText() noexcept override { return {0, element_.text}; }
  zeph::TextAnswer get_outerHTML() noexcept override { return {}; }

  zeph::TextAnswer get_action() noexcept override {
    const auto action = element_.attributes.find(u"action");
    if (action == element_.attributes.end()) return {};
    return {0, action->second};
  }
  zeph::CollectionAnswer tags(std::u16string_view tagName) noexcept override;

 private:
  Document& document_;
  const Element& element_;
  std::size_t position_;
  Anchor anchor_;
  Image image_;
};

class Document final : public zeph::IHTMLDocument2 {
 public:
  Document(std::u16string url, std::u16string title, std::vector<Element> elements)
      : url_(std::move(url)), title_(std::move(title)), elements_(std::move(elements)) {
    for (std::size_t i = 0; i < elements_.size(); ++i) objects_.emplace_back(*this, elements_[i], i);
  }

  zeph::CollectionAnswer get_all() noexcept override {
    return List([](const Element&) { return true; });
  }
  zeph::CollectionAnswer get_images() noexcept override { return ListOfTag(u"IMG"); }
  zeph::CollectionAnswer get_forms() noexcept override { return ListOfTag(u"FORM"); }
  zeph::CollectionAnswer get_scripts() noexcept override { return ListOfTag(u"SCRIPT"); }
  zeph::CollectionAnswer get_links() noexcept override {
    return List([](const Element& element) { return element.tag == u"A" && element.attributes.contains(u"href"); });
  }
  zeph::ObjectAnswer get_body() noexcept override {
    for (std::size_t i = 0; i < elements_.size(); ++i) {
      if (elements_[i].tag == u"BODY") return {0, &objects_[i]};
    }
    return {};
  }
  zeph::TextAnswer get_title() noexcept override { return {0, title_}; }
  zeph::TextAnswer get_URL() noexcept override { return {0, url_}; }
  // Something that can't be told at all is a failure; what the engine does without it is its affair.
  zeph::TextAnswer get_referrer() noexcept override { return {zeph::kStatusFail, {}}; }

  [[nodiscard]] zeph::DocumentObject* ObjectAt(std::size_t position) noexcept { return &objects_[position]; }

  template <class Belongs>
  zeph::CollectionAnswer List(Belongs belongs) {
    ElementList& list = lists_.emplace_back(*this);
    for (std::size_t i = 0; i < elements_.size(); ++i) {
      if (belongs(elements_[i])) list.positions.push_back(i);
    }
    return {0, &list};
  }

 private:
  zeph::CollectionAnswer ListOfTag(std::u16string_view tag) {
    return List([tag](const Element& element) { return element.tag == tag; });
  }

  std::u16string url_;
  std::u16string title_;
  std::vector<Element> elements_;
  std::deque<ElementObject> objects_;  // deques: what was lent doesn't move
  std::deque<ElementList> lists_;
};

zeph::ObjectAnswer ElementList::item(std::int32_t index) noexcept {
  if (index < 0 || static_cast<std::size_t>(index) >= positions.size()) return {};
  return {0, document_.ObjectAt(positions[static_cast<std::size_t>(index)])};
}

zeph::CollectionAnswer ElementList::tags(std::u16string_view tagName) noexcept {
  return document_.List([&](const Element& element) { return Lower(element.tag) == Lower(tagName); });
}

zeph::CollectionAnswer ElementObject::tags(std::u16string_view tagName) noexcept {
  return document_.List(
      [&](const Element& element) { return element.form == position_ + 1 && Lower(element.tag) == Lower(tagName); });
}

}  // namespace

int main() {
  const std::u16string markup =
      u"<A href=\"https://www.paypal.com/\"><IMG src=\"https://www.paypalobjects.com/logo.png\"></A>"
      u"<P>Log in to your PayPal account</P><FORM action=\"next.php\">Email <INPUT type=text name=mail> "
      u"Password <INPUT type=password name=pass></FORM>";
  Document page(u"http://paypal.example.net/login", u"Log in to your PayPal account",
                {{u"BODY", {}, u"Log in to your PayPal account\r\nEmail Password", markup},
                 {u"A", {{u"href", u"https://www.paypal.com/"}}},
                 {u"IMG", {{u"src", u"https://www.paypalobjects.com/logo.png"}}},
                 {u"P", {}, u"Log in to your PayPal account", u"Log in to your PayPal account"},
                 {u"FORM", {{u"action", u"next.php"}}},
                 {u"INPUT", {{u"type", u"text"}, {u"name", u"mail"}}, {}, {}, 5},
                 {u"INPUT", {{u"type", u"password"}, {u"name", u"pass"}}, {}, {}, 5}});

  SetPreferences(0, 2, 1, nullptr, 0, nullptr);  // privacy 2: nothing is sent anywhere
  std::int32_t classification = 0;
  float spooficity = 0.0F;
  char16_t brand[kZephNameRoom] = {};
  const std::int32_t status = ClassifySite(&page, &classification, brand, nullptr, nullptr, &spooficity);

  std::string name;
  for (const char16_t* c = brand; *c != 0; ++c) name += static_cast<char>(*c < 0x80 ? *c : u'?');
  std::printf("status %d, classification %d, spooficity %.2f, brand %s\n", status, classification,
              static_cast<double>(spooficity), name.c_str());
  return status == 0 ? 0 : 1;
}
