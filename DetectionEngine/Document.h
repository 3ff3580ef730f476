// SPDX-License-Identifier: Apache-2.0
// The document as the engine reads it: what an integrator in C++ implements so that a page can be classified.
//
// The engine only reads. It calls on the thread that called ClassifySite, never after that call has returned,
// and keeps nothing: every object and every text that an operation gives is lent by the document and must
// stay where it is until ClassifySite returns. The engine never deletes any of these objects.
//
// An operation answers with a status and a value. A negative status is a failure; the value is then not
// looked at. A success may still come with nothing (a null object, an absent text), which is how a document
// says "there is none". Nothing may throw.
//
// An object says which interfaces it has through the queries of DocumentObject: a query that isn't
// overridden gives null, which is not a failure. Overriding the operations that a document can't answer with
// `return {};` is enough.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zeph {

/// 0 and above: success; below 0: failure. Passes through ClassifySite unchanged.
using Status = std::int32_t;

/// The unspecified failure; a null document has it from every collector.
inline constexpr Status kStatusFail = static_cast<Status>(0x80004005U);
/// A state that can't be worked with.
inline constexpr Status kStatusUnexpected = static_cast<Status>(0x8000FFFFU);
/// No memory was left.
inline constexpr Status kStatusOutOfMemory = static_cast<Status>(0x8007000EU);
/// Reading the page would have cost more than a page of its size may cost.
inline constexpr Status kStatusTooCostly = static_cast<Status>(0x80070718U);

/// The call ended for want of memory or because the page is made to cost too much: nothing was judged, and whatever
/// classification stands in an out-parameter says nothing about the page.
[[nodiscard]] constexpr bool IsUnjudged(Status status) noexcept {
  return status == kStatusOutOfMemory || status == kStatusTooCostly;
}

/// How much may still be kept, in bytes, of what is derived from one page: by its document and by the engine together.
/// Once something was refused the page counts as too costly and is not judged. One thread at a time.
class PageBudget {
 public:
  /// What is derived from a page may take so many times the room of the page, and this much whatever its size. That
  /// keeps all that reading takes, what isn't counted included, below twelve times the page or 24 MiB.
  static constexpr std::size_t kTimes = 10;
  static constexpr std::size_t kLeast = std::size_t{19} << 20;
  [[nodiscard]] static constexpr PageBudget ForPage(std::size_t pageBytes) noexcept {
    return PageBudget(pageBytes < kLeast / kTimes ? kLeast : kTimes * pageBytes);
  }

  explicit constexpr PageBudget(std::size_t bytes) noexcept : left_(bytes) {}

  /// False when so much isn't left, or once was not.
  [[nodiscard]] bool Take(std::size_t bytes) noexcept {
    if (bytes > left_) Fail(kStatusTooCostly);
    if (failure_ != 0) return false;
    left_ -= bytes;
    return true;
  }
  void GiveBack(std::size_t bytes) noexcept { left_ += bytes; }

  /// Notes what keeps the page from being judged; the first stays.
  void Fail(Status failure) noexcept {
    if (failure_ == 0) failure_ = failure;
  }
  /// 0 while nothing was refused.
  [[nodiscard]] Status Failure() const noexcept { return failure_; }

 private:
  std::size_t left_;
  Status failure_ = 0;
};

template <class T>
struct Answer {
  Status status = 0;
  T value{};

  /// Success with something in it.
  [[nodiscard]] bool HasValue() const noexcept { return status >= 0 && static_cast<bool>(value); }
};

/// UTF-16 text, or none.
using TextAnswer = Answer<std::optional<std::u16string_view>>;

/// A 32-bit number; none reads as 0.
struct NumberAnswer {
  Status status = 0;
  std::int32_t value = 0;
};

/// The value of an attribute: a string, a 16-bit integer, or a value of no or another kind.
struct AttributeValue {
  enum class Kind : std::uint8_t { kNone, kString, kNumber };
  Kind kind = Kind::kNone;
  std::u16string_view text;  ///< kString
  std::int16_t number = 0;   ///< kNumber
};
struct AttributeAnswer {
  Status status = 0;
  AttributeValue value;
};

class IHTMLElement;
class IHTMLFormElement;
class IHTMLAnchorElement;
class IHTMLAreaElement;
class IHTMLImgElement;
class IHTMLScriptElement;
class IHTMLBodyElement;
class IHTMLCommentElement;
class IHTMLLinkElement;
class IHTMLMetaElement;
class IHTMLDOMNode;

/// A reference to something in the document, and the queries for what it can answer.
class DocumentObject {
 public:
  virtual IHTMLElement* QueryElement() noexcept { return nullptr; }
  virtual IHTMLFormElement* QueryForm() noexcept { return nullptr; }
  virtual IHTMLAnchorElement* QueryAnchor() noexcept { return nullptr; }
  virtual IHTMLAreaElement* QueryArea() noexcept { return nullptr; }
  virtual IHTMLImgElement* QueryImg() noexcept { return nullptr; }
  virtual IHTMLScriptElement* QueryScript() noexcept { return nullptr; }
  virtual IHTMLBodyElement* QueryBody() noexcept { return nullptr; }
  virtual IHTMLCommentElement* QueryComment() noexcept { return nullptr; }
  virtual IHTMLLinkElement* QueryLink() noexcept { return nullptr; }
  virtual IHTMLMetaElement* QueryMeta() noexcept { return nullptr; }
  virtual IHTMLDOMNode* QueryNode() noexcept { return nullptr; }

 protected:
  ~DocumentObject() = default;
};

using ObjectAnswer = Answer<DocumentObject*>;

/// A list of elements. Lists of forms, links, images, scripts and of all elements are in source order.
class IHTMLElementCollection {
 public:
  virtual NumberAnswer get_length() noexcept = 0;
  /// The element at index, counted from 0; null where it doesn't exist any more.
  virtual ObjectAnswer item(std::int32_t index) noexcept = 0;
  /// The elements of this list that have the tag name, compared without regard to case.
  virtual Answer<IHTMLElementCollection*> tags(std::u16string_view tagName) noexcept = 0;

 protected:
  ~IHTMLElementCollection() = default;
};

using CollectionAnswer = Answer<IHTMLElementCollection*>;

class IHTMLElement {
 public:
  /// Value of an attribute by name, without regard to case; only a string counts.
  virtual AttributeAnswer getAttribute(std::u16string_view name) noexcept = 0;
  /// Upper-case tag name; "!" for a comment.
  virtual TextAnswer get_tagName() noexcept = 0;
  virtual TextAnswer get_innerHTML() noexcept = 0;
  /// The text inside the element as a reader sees it.
  virtual TextAnswer get_innerText() noexcept = 0;
  virtual TextAnswer get_outerHTML() noexcept = 0;

 protected:
  ~IHTMLElement() = default;
};

class IHTMLFormElement {
 public:
  /// The form's target as it is written in the page.
  virtual TextAnswer get_action() noexcept = 0;
  /// The elements inside the form that have the tag name ("INPUT", "SELECT", "TEXTAREA").
  virtual CollectionAnswer tags(std::u16string_view tagName) noexcept = 0;

 protected:
  ~IHTMLFormElement() = default;
};

class IHTMLAnchorElement {
 public:
  /// The absolute target.
  virtual TextAnswer get_href() noexcept = 0;

 protected:
  ~IHTMLAnchorElement() = default;
};

class IHTMLAreaElement {
 public:
  /// The absolute target.
  virtual TextAnswer get_href() noexcept = 0;

 protected:
  ~IHTMLAreaElement() = default;
};

class IHTMLImgElement {
 public:
  /// The absolute source.
  virtual TextAnswer get_src() noexcept = 0;
  /// Pixels; 0 when not known.
  virtual NumberAnswer get_width() noexcept = 0;
  virtual NumberAnswer get_height() noexcept = 0;

 protected:
  ~IHTMLImgElement() = default;
};

class IHTMLScriptElement {
 public:
  /// The source as it is written in the page.
  virtual TextAnswer get_src() noexcept = 0;
  virtual TextAnswer get_text() noexcept = 0;

 protected:
  ~IHTMLScriptElement() = default;
};

class IHTMLBodyElement {
 public:
  virtual TextAnswer get_background() noexcept = 0;

 protected:
  ~IHTMLBodyElement() = default;
};

class IHTMLCommentElement {
 public:
  virtual TextAnswer get_text() noexcept = 0;

 protected:
  ~IHTMLCommentElement() = default;
};

class IHTMLLinkElement {
 public:
  /// The absolute target.
  virtual TextAnswer get_href() noexcept = 0;
  virtual TextAnswer get_rel() noexcept = 0;

 protected:
  ~IHTMLLinkElement() = default;
};

class IHTMLMetaElement {
 public:
  virtual TextAnswer get_httpEquiv() noexcept = 0;
  virtual TextAnswer get_content() noexcept = 0;

 protected:
  ~IHTMLMetaElement() = default;
};

class IHTMLDOMChildrenCollection {
 public:
  virtual NumberAnswer get_length() noexcept = 0;
  virtual ObjectAnswer item(std::int32_t index) noexcept = 0;

 protected:
  ~IHTMLDOMChildrenCollection() = default;
};

class IHTMLAttributeCollection2 {
 public:
  /// The node value of the named attribute, without regard to case; kNone when the node has no such attribute.
  virtual AttributeAnswer getNamedItem(std::u16string_view name) noexcept = 0;

 protected:
  ~IHTMLAttributeCollection2() = default;
};

class IHTMLDOMNode {
 public:
  /// Upper-case tag name; "#text" and "#comment" for other nodes.
  virtual TextAnswer get_nodeName() noexcept = 0;
  virtual Answer<IHTMLDOMChildrenCollection*> get_childNodes() noexcept = 0;
  virtual Answer<IHTMLAttributeCollection2*> get_attributes() noexcept = 0;

 protected:
  ~IHTMLDOMNode() = default;
};

/// What the browser has loaded beside the document and can still give back.
class IUrlCache {
 public:
  /// The bytes kept for exactly this URL (a narrow text), or nothing. Lent as all else.
  virtual std::optional<std::string_view> Retrieve(std::string_view url) noexcept = 0;

 protected:
  ~IUrlCache() = default;
};

class IHTMLDocument2 {
 public:
  /// Every element of the document, comments included, in source order.
  virtual CollectionAnswer get_all() noexcept = 0;
  /// The body, which should answer QueryElement; null when there is none.
  virtual ObjectAnswer get_body() noexcept = 0;
  virtual CollectionAnswer get_images() noexcept = 0;
  /// Elements that carry a link; each answers QueryAnchor, QueryArea or both.
  virtual CollectionAnswer get_links() noexcept = 0;
  virtual CollectionAnswer get_forms() noexcept = 0;
  virtual TextAnswer get_title() noexcept = 0;
  virtual CollectionAnswer get_scripts() noexcept = 0;
  virtual TextAnswer get_referrer() noexcept = 0;
  virtual TextAnswer get_URL() noexcept = 0;

  /// The URL cache of whoever loaded the document; null where there is none. The text of external scripts
  /// is looked for there, never on the network.
  virtual IUrlCache* UrlCache() noexcept { return nullptr; }

  /// The budget of a document that knows how large its page is. The engine takes from it what it keeps, and ends with
  /// its failure even where an operation that failed was passed over. Null: the engine has a fixed budget of its own.
  virtual PageBudget* Budget() noexcept { return nullptr; }

 protected:
  ~IHTMLDocument2() = default;
};

}  // namespace zeph
