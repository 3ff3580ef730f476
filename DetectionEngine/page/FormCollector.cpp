// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/FormCollector.h"

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "DetectionEngine/page/DocumentReading.h"
#include "DetectionEngine/page/PageUrls.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

namespace {

enum class InputType : std::uint8_t { kText, kPassword, kHidden, kSubmit, kNoField };

/// The type that the attribute names; one that it doesn't know is a text field, as it is for a browser.
InputType InputTypeOf(std::u16string_view type) noexcept {
  struct Row {
    std::u16string_view name;
    InputType type;
  };
  static constexpr std::array<Row, 9> kTypes = {{{u"submit", InputType::kSubmit},
                                                 {u"password", InputType::kPassword},
                                                 {u"hidden", InputType::kHidden},
                                                 {u"button", InputType::kNoField},
                                                 {u"checkbox", InputType::kNoField},
                                                 {u"file", InputType::kNoField},
                                                 {u"image", InputType::kNoField},
                                                 {u"radio", InputType::kNoField},
                                                 {u"reset", InputType::kNoField}}};
  for (const Row& row : kTypes) {
    if (row.name.size() == type.size() && StartsWithNoCase(type, row.name)) return row.type;
  }
  return InputType::kText;
}

class FormCollector {
 public:
  FormCollector(IHTMLDocument2& document, const UrlRecord& pageUrl, FormData& data)
      : document_(document), pageUrl_(pageUrl), data_(data), kept_(document) {}

  Status Collect() {
    IHTMLElementCollection* const forms = reader_.Take(document_.get_forms());
    data_.numForms = reader_.Length(forms);
    reader_.Walk(forms, data_.numForms, [&](DocumentObject& object) {
      IHTMLFormElement* const form = object.QueryForm();
      if (form != nullptr) ReadForm(*form);
    });
    return reader_.LastStatus();
  }

 private:
  void ReadForm(IHTMLFormElement& form) {
    kept_.Take(kBytesOfForm);
    FormRecord record;
    const std::optional<std::u16string_view> action = reader_.Take(form.get_action());
    if (reader_.Failed()) return;
    if (action && !action->empty()) ReadAction(*action, record);

    record.selectCount = reader_.Length(reader_.Take(form.tags(u"SELECT")));
    if (reader_.Failed()) return;
    record.textareaCount = reader_.Length(reader_.Take(form.tags(u"TEXTAREA")));
    if (reader_.Failed()) return;
    ReadInputs(form, record);
    if (reader_.Failed()) return;

    if (record.passwordCount > 0) ++data_.numPasswordForms;
    record.hasUserFields =
        record.selectCount > 0 || record.textareaCount > 0 || record.passwordCount > 0 || record.textCount > 0;
    if (record.hasUserFields) ++data_.numVisibleForms;
    record.multipleFields = record.textCount + record.passwordCount > 1;
    data_.records.push_back(std::move(record));
  }

  /// What an action comes to.
  struct Target {
    std::u16string_view host;
    std::u16string_view scheme;
    std::u16string_view extension;
  };

  void ReadAction(std::u16string_view action, FormRecord& record) {
    kept_.TakeView(action);
    const std::uint32_t number = actions_.Add(action);
    if (number == targets_.size()) {
      kept_.Take(DistinctTexts::kBytes + 2 * sizeof(Target));
      targets_.push_back(Resolve(action));
    }
    const Target& target = targets_[number];
    record.action = action;
    record.actionHost = target.host;
    record.actionScheme = target.scheme;
    record.actionExtension = target.extension;
  }

  Target Resolve(std::u16string_view action) {
    UrlParser parser;
    Target target;
    if (IsHttpUrl(action)) {
      if (parser.DecodeUrl(action) == 0) target.host = Keep(parser.Record().HostName);
    } else {
      if (pageHost_.empty()) pageHost_ = Keep(pageUrl_.HostName);
      target.host = pageHost_;
      std::u16string absolute;
      if (!CombineUrl(pageUrl_.RawUrl, action, absolute)) return target;
      parser.DecodeUrl(absolute);
    }
    target.scheme = Keep(parser.Record().Scheme);
    target.extension = Keep(parser.Record().FileExtension);
    return target;
  }

  std::u16string_view Keep(std::u16string_view text) {
    kept_.Take(2 * text.size());
    return data_.kept.Copy(text);
  }

  void ReadInputs(IHTMLFormElement& form, FormRecord& record) {
    IHTMLElementCollection* const inputs = reader_.Take(form.tags(u"INPUT"));
    record.inputCount = reader_.Length(inputs);
    reader_.Walk(inputs, record.inputCount, [&](DocumentObject& object) {
      kept_.Take(kBytesOfInput);
      IHTMLElement* const element = object.QueryElement();
      if (element != nullptr) ReadInput(*element, record);
    });
  }

  void ReadInput(IHTMLElement& element, FormRecord& record) {
    const std::optional<std::u16string_view> type = reader_.Take(element.getAttribute(u"TYPE"));
    if (reader_.Failed()) return;
    switch (InputTypeOf(type.value_or(u"text"))) {
      case InputType::kSubmit: {
        ++record.submitCount;
        const std::optional<std::u16string_view> value = reader_.Take(element.getAttribute(u"VALUE"));
        if (value) record.submitValue = *value;
        break;
      }
      case InputType::kText:
        ++record.textCount;
        break;
      case InputType::kPassword:
        ++record.passwordCount;
        break;
      case InputType::kHidden: {
        ++record.hiddenCount;
        const std::optional<std::u16string_view> name = reader_.Take(element.getAttribute(u"NAME"));
        const std::optional<std::u16string_view> value = reader_.Take(element.getAttribute(u"VALUE"));
        KeepHidden(name, value, record);
        break;
      }
      case InputType::kNoField:
        break;
    }
  }

  void KeepHidden(std::optional<std::u16string_view> name, std::optional<std::u16string_view> value,
                  FormRecord& record) {
    if (!name && !value) return;
    const std::u16string_view nameText = name.value_or(u"");
    const std::u16string_view valueText = value.value_or(u"");
    kept_.TakeView(nameText);
    kept_.TakeView(valueText);
    record.hiddenNames.push_back(nameText);
    record.hiddenValues.push_back(valueText);
    if (!record.hasHiddenAddress && LooksLikeAddress(valueText)) {
      record.hasHiddenAddress = true;
      record.hiddenAddress = valueText;
    }
  }

  /// A form, in a list that has room to spare.
  static constexpr std::size_t kBytesOfForm = 2 * sizeof(FormRecord);
  /// Forms that hold one another, or that a list names over and over, would multiply their fields: each look counts.
  static constexpr std::size_t kBytesOfInput = 4;

  IHTMLDocument2& document_;
  const UrlRecord& pageUrl_;
  FormData& data_;
  KeptTexts kept_;
  DocumentReader reader_;
  DistinctTexts actions_;
  std::vector<Target> targets_;  ///< by the number of their action
  std::u16string_view pageHost_;
};

}  // namespace

Status CollectFormData(IHTMLDocument2* document, const UrlRecord& pageUrl, FormData& data) {
  if (document == nullptr) return kStatusFail;
  return FormCollector(*document, pageUrl, data).Collect();
}

bool LooksLikeAddress(std::u16string_view value) noexcept {
  if (value.size() < 3 || value.size() > 50) return false;
  const std::size_t at = value.find(u'@');
  const std::size_t dot = value.rfind(u'.');
  if (at == std::u16string_view::npos || dot == std::u16string_view::npos) return false;
  return at > 0 && dot > at && dot < value.size() - 1;
}

}  // namespace zeph
