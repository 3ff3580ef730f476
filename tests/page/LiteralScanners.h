// SPDX-License-Identifier: Apache-2.0
// Both scanners as one would write them down: character by character, a search for each test. The engine's must give
// the same.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "DetectionEngine/page/FormTextScanner.h"
#include "DetectionEngine/text/CharacterClass.h"

namespace zeph {

class LiteralFormTextScanner {
 public:
  struct Form {
    std::u16string labelText, action;
  };
  struct Result {
    std::vector<Form> forms;
    std::u16string scanText;
    bool fieldWithoutLabel = false;
    std::int32_t fieldCount = 0;
  };
  Result Scan(std::u16string_view html) {
    for (const char16_t c : html) Read(c);
    return result;
  }

 private:
  bool Holds(std::initializer_list<std::u16string_view> texts) const {
    for (const std::u16string_view text : texts) {
      if (tag.find(text) != std::u16string::npos) return true;
    }
    return false;
  }

  static bool HoldsLetter(const std::u16string& text) {
    for (const char16_t c : text) {
      if (IsAlpha(c)) return true;
    }
    return false;
  }

  void Read(char16_t c) {
    if (inTag) {
      if (inSingleQuote || inDoubleQuote) {
        tag += c;
        if (inSingleQuote && c == u'\'') inSingleQuote = false;
        if (inDoubleQuote && c == u'"') inDoubleQuote = false;
      } else if (c != u'>') {
        if (c == u'\'') {
          inSingleQuote = true;
        } else if (c == u'"') {
          inDoubleQuote = true;
        } else {
          tag += c;
        }
      } else {
        tag += c;
        inTag = false;
        EndTag();
      }
      return;
    }
    tag.clear();
    if (inSelect || inScriptOrStyle) {
      if (c == u'<') BeginTag();
    } else if (!inEntity) {
      if (c == u'&') {
        inEntity = true;
        entity = c;
      } else if (c == u'<') {
        BeginTag();
      } else {
        currentText += c;
      }
    } else {
      entity += c;
      if (c != u';' && c != u'<') return;
      inEntity = false;
      if (entity == u"&nbsp;") currentText += u' ';
      if (entity == u"&amp;") currentText += u'&';
      if (entity == u"&quot;") currentText += u'"';
      if (entity == u"&lt;") currentText += u'<';
      if (entity == u"&gt;") currentText += u'>';
    }
  }

  void BeginTag() {
    inTag = true;
    tag = u"<";
  }

  void EndTag() {
    if (Holds({u"<P>", u"<P ", u"</P>", u"<DIV>", u"<DIV ", u"</DIV>", u"<BR>", u"<BR ", u"</BR>", u"<TR>", u"<TR ",
               u"</TR>"})) {
      bool blank = true;
      for (const char16_t c : currentText) blank = blank && IsSpace(c);
      if (!blank) previousText = currentText;
      currentText.clear();
    }
    if (OnFormTag()) {
      OnField();
    } else if (Holds({u"</SELECT>"})) {
      inSelect = false;
    } else if (Holds({u"<SCRIPT>", u"<SCRIPT ", u"<STYLE>", u"<STYLE "})) {
      inScriptOrStyle = true;
    } else if (Holds({u"</SCRIPT>", u"</STYLE>"})) {
      inScriptOrStyle = false;
    }
  }

  bool OnFormTag() {
    if (Holds({u"<FORM ", u"<FORM>"})) {
      result.forms.push_back({u"", Action()});
      return false;
    }
    if (Holds({u"<INPUT>"})) {
      ++result.fieldCount;
      return true;
    }
    if (Holds({u"<INPUT "})) {
      afterPassword = Holds({u"type=password"});
      if (Holds({u"type=text"}) || afterPassword || Holds({u"type=file"}) ||
          !Holds({u"type=button", u"type=checkbox", u"type=hidden", u"type=image", u"type=radio", u"type=reset",
                  u"type=submit"})) {
        ++result.fieldCount;
        return true;
      }
    }
    if (Holds({u"<SELECT>", u"<SELECT "})) {
      inSelect = true;
      return true;
    }
    return false;
  }

  std::u16string Action() const {
    std::size_t at = tag.find(u"action=");
    if (at == std::u16string::npos || at + 7 >= tag.size()) return u"";
    at += 7;
    std::u16string value;
    const char16_t first = tag[at];
    if (first == u'"' || first == u'\'') {
      for (++at; at < tag.size() && tag[at] != first; ++at) value += tag[at];
    } else if (first != u'>') {
      for (; at < tag.size() && !IsSpace(tag[at]); ++at) value += tag[at];
    }
    return value;
  }

  void OnField() {
    tag.clear();
    afterPassword = false;
    if (HoldsLetter(currentText)) {
      AddLabel(currentText);
      currentText.clear();
      return;
    }
    if (HoldsLetter(previousText)) {
      AddLabel(previousText);
    } else {
      result.fieldWithoutLabel = true;
    }
    previousText.clear();
    currentText.clear();
  }

  void AddLabel(const std::u16string& text) {
    result.scanText += u" " + text;
    if (!result.forms.empty()) result.forms.back().labelText += u" " + text;
  }

  Result result;
  std::u16string previousText, currentText, tag, entity;
  bool inTag = false, inSingleQuote = false, inDoubleQuote = false;
  bool inSelect = false, inScriptOrStyle = false, inEntity = false, afterPassword = false;
};

class LiteralStructureEncoder {
 public:
  std::u16string Encode(std::u16string_view html) {
    for (const char16_t c : html) Read(c);
    return structure;
  }

 private:
  bool Holds(std::initializer_list<std::u16string_view> texts) const {
    for (const std::u16string_view text : texts) {
      if (tag.find(text) != std::u16string::npos) return true;
    }
    return false;
  }

  void Read(char16_t c) {
    if (inTag) {
      tag += c;
      if (inSingleQuote) {
        inSingleQuote = c != u'\'';
      } else if (inDoubleQuote) {
        inDoubleQuote = c != u'"';
      } else if (c == u'>') {
        inTag = false;
        OnTag();
      } else if (!skipping) {
        inSingleQuote = c == u'\'';
        inDoubleQuote = c == u'"';
      }
      return;
    }
    tag.clear();
    if (inEntity) {
      entity += c;
      if (c != u';' && c != u'<') return;
      inEntity = false;
      if (entity != u"&nbsp;" && !skipping && !textPending) AddText();
      entity.clear();
    } else if (c == u'<') {
      inTag = true;
      tag = c;
    } else if (!IsSpace(c) && !skipping && !textPending) {
      if (c == u'&') {
        inEntity = true;
        entity = c;
      } else {
        AddText();
      }
    }
  }

  void AddText() {
    structure += u'T';
    textPending = true;
  }

  void Add(std::u16string_view letters) {
    structure += letters;
    textPending = false;
  }

  void OnTag() {
    if (skipping) {
      if (!Holds({u"</SELECT>", u"</TEXTAREA>", u"</SCRIPT>", u"</STYLE>"})) return;
      skipping = false;
    }
    if (Holds({u"<BR>", u"<BR ", u"</BR>"})) return Add(u"n");
    if (Holds({u"<UL>", u"<UL ", u"</UL>", u"<OL>", u"<OL ", u"</OL>", u"<P>", u"<P ", u"</P>"})) {
      if (structure.size() >= 2) Add(u"nn");
      return;
    }
    if (Holds({u"<TR>", u"<TR ", u"</TR>", u"<LI>", u"<LI ", u"<DIV>", u"<DIV ", u"</DIV>"})) {
      if (structure.size() >= 2) Add(u"n");
      return;
    }
    if (Holds({u"<INPUT>"})) return Add(u"I");
    if (Holds({u"<INPUT "})) {
      if (Holds({u"type=text", u"type=password"})) return Add(u"I");
      if (Holds({u"type=button", u"type=submit", u"type=reset"})) return Add(u"B");
      if (Holds({u"type=checkbox"})) return Add(u"C");
      if (Holds({u"type=radio"})) return Add(u"R");
      if (Holds({u"type=image"})) return Add(u"G");
      if (Holds({u"type=file"})) return Add(u"IB");
      if (Holds({u"type=hidden"})) return;
      return Add(u"I");
    }
    if (Holds({u"<SELECT>", u"<SELECT "})) {
      skipping = true;
      return Add(u"S");
    }
    if (Holds({u"<TEXTAREA>", u"<TEXTAREA "})) {
      skipping = true;
      return Add(u"I");
    }
    if (Holds({u"<IMG "}) && Holds({u"src="})) {
      if (!(Holds({u"width=1>", u"width=1 "}) && Holds({u"height=1>", u"height=1 "}))) Add(u"G");
      return;
    }
    if (Holds({u"<HR>", u"<HR "})) return Add(u"L");
    if (Holds({u"<SCRIPT>", u"<SCRIPT ", u"<STYLE>", u"<STYLE "})) skipping = true;
  }

  std::u16string structure, tag, entity;
  bool inTag = false, skipping = false, textPending = false;
  bool inSingleQuote = false, inDoubleQuote = false, inEntity = false;
};

}  // namespace zeph
