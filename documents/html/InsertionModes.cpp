// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <string_view>

#include "documents/html/TreeConstruction.h"

namespace zeph::html {

using namespace name;  // the known names, which every line below is about

namespace {

/// Public identifiers of doctypes that ask for quirks, by their beginnings.
constexpr std::u16string_view kQuirksIds[] = {
    u"+//silmaril//dtd html pro v0r11 19970101//",
    u"-//as//dtd html 3.0 aswedit + extensions//",
    u"-//advasoft ltd//dtd html 3.0 aswedit + extensions//",
    u"-//ietf//dtd html 2.0 level 1//",
    u"-//ietf//dtd html 2.0 level 2//",
    u"-//ietf//dtd html 2.0 strict level 1//",
    u"-//ietf//dtd html 2.0 strict level 2//",
    u"-//ietf//dtd html 2.0 strict//",
    u"-//ietf//dtd html 2.0//",
    u"-//ietf//dtd html 2.1e//",
    u"-//ietf//dtd html 3.0//",
    u"-//ietf//dtd html 3.2 final//",
    u"-//ietf//dtd html 3.2//",
    u"-//ietf//dtd html 3//",
    u"-//ietf//dtd html level 0//",
    u"-//ietf//dtd html level 1//",
    u"-//ietf//dtd html level 2//",
    u"-//ietf//dtd html level 3//",
    u"-//ietf//dtd html strict level 0//",
    u"-//ietf//dtd html strict level 1//",
    u"-//ietf//dtd html strict level 2//",
    u"-//ietf//dtd html strict level 3//",
    u"-//ietf//dtd html strict//",
    u"-//ietf//dtd html//",
    u"-//metrius//dtd metrius presentational//",
    u"-//microsoft//dtd internet explorer 2.0 html strict//",
    u"-//microsoft//dtd internet explorer 2.0 html//",
    u"-//microsoft//dtd internet explorer 2.0 tables//",
    u"-//microsoft//dtd internet explorer 3.0 html strict//",
    u"-//microsoft//dtd internet explorer 3.0 html//",
    u"-//microsoft//dtd internet explorer 3.0 tables//",
    u"-//netscape comm. corp.//dtd html//",
    u"-//netscape comm. corp.//dtd strict html//",
    u"-//o'reilly and associates//dtd html 2.0//",
    u"-//o'reilly and associates//dtd html extended 1.0//",
    u"-//o'reilly and associates//dtd html extended relaxed 1.0//",
    u"-//softquad software//dtd hotmetal pro 6.0::19990601::extensions to html 4.0//",
    u"-//softquad//dtd hotmetal pro 4.0::19971010::extensions to html 4.0//",
    u"-//spyglass//dtd html 2.0 extended//",
    u"-//sun microsystems corp.//dtd hotjava html//",
    u"-//sun microsystems corp.//dtd hotjava strict html//",
    u"-//w3c//dtd html 3 1995-03-24//",
    u"-//w3c//dtd html 3.2 draft//",
    u"-//w3c//dtd html 3.2 final//",
    u"-//w3c//dtd html 3.2//",
    u"-//w3c//dtd html 3.2s draft//",
    u"-//w3c//dtd html 4.0 frameset//",
    u"-//w3c//dtd html 4.0 transitional//",
    u"-//w3c//dtd html experimental 19960712//",
    u"-//w3c//dtd html experimental 970421//",
    u"-//w3c//dtd w3 html//",
    u"-//w3o//dtd w3 html 3.0//",
    u"-//webtechs//dtd mozilla html 2.0//",
    u"-//webtechs//dtd mozilla html//"};

}  // namespace

void TreeBuilder::Run() {
  tree_.nodes.Reserve(tree_.text.size() / 12 + 16);
  open_.Reserve(kMaxDepth + 1);
  NewNode(NodeKind::kDocument);
  Token token;
  do {
    tokenizer_.AllowCdata(!open_.empty() && Top().key >= kForeign);
    tokenizer_.Next(token);
    Take(token);
  } while (token.kind != TokenKind::kEnd);
  tree_.text.Truncate(tokenizer_.KeptLength());
}

void TreeBuilder::Take(Token& token) {
  if (ignoreLineFeed_) {
    ignoreLineFeed_ = false;
    if (token.kind == TokenKind::kText && tree_.text.data()[token.begin] == u'\n') {
      ++token.begin;
      if (--token.length == 0) return;
    }
  }
  attributesTaken_ = false;
  const std::uint32_t attributes = token.begin;
  while (!(IsForeign(token) ? ForeignContent(token) : Dispatch(mode_, token))) {
  }
  if (token.kind == TokenKind::kStartTag && !attributesTaken_) tree_.attributes.Truncate(attributes);
  if (gap_ && (token.kind == TokenKind::kStartTag || token.kind == TokenKind::kEndTag)) InsertGap();
}

bool TreeBuilder::Dispatch(Mode mode, Token& token) {
  switch (mode) {
    case Mode::kInitial:
      return Initial(token);
    case Mode::kBeforeHtml:
      return BeforeHtml(token);
    case Mode::kBeforeHead:
      return BeforeHead(token);
    case Mode::kInHead:
      return InHead(token);
    case Mode::kInHeadNoscript:
      return InHeadNoscript(token);
    case Mode::kAfterHead:
      return AfterHead(token);
    case Mode::kInBody:
      return InBody(token);
    case Mode::kText:
      return Text(token);
    case Mode::kInTable:
      return InTable(token);
    case Mode::kInTableText:
      return InTableText(token);
    case Mode::kInCaption:
      return InCaption(token);
    case Mode::kInColumnGroup:
      return InColumnGroup(token);
    case Mode::kInTableBody:
      return InTableBody(token);
    case Mode::kInRow:
      return InRow(token);
    case Mode::kInCell:
      return InCell(token);
    case Mode::kInTemplate:
      return InTemplate(token);
    case Mode::kAfterBody:
      return AfterBody(token);
    case Mode::kInFrameset:
      return InFrameset(token);
    case Mode::kAfterFrameset:
      return AfterFrameset(token);
    case Mode::kAfterAfterBody:
      return AfterAfterBody(token);
    case Mode::kAfterAfterFrameset:
      return AfterAfterFrameset(token);
  }
  return true;
}

bool TreeBuilder::Initial(Token& token) {
  if (token.kind == TokenKind::kText && LeadingBlanks(token, false)) return true;
  if (token.kind == TokenKind::kComment) {
    InsertComment(token, {kDocument, 0});
    return true;
  }
  mode_ = Mode::kBeforeHtml;
  if (token.kind != TokenKind::kDoctype) {
    tree_.quirks = true;
    return false;
  }
  const Doctype& doctype = tokenizer_.LastDoctype();
  tree_.doctype = doctype;
  tree_.Append(kDocument, NewNode(NodeKind::kDoctype));
  const auto text = [this](const Slice& slice) { return tree_.TextOf(slice.begin, slice.length); };
  const std::u16string_view publicId = text(doctype.publicId);
  tree_.quirks = token.forceQuirks || text(doctype.name) != u"html" ||
            EqualsNoCase(publicId, u"-//w3o//dtd w3 html strict 3.0//en//") ||
            EqualsNoCase(publicId, u"-/w3c/dtd html 4.0 transitional/en") || EqualsNoCase(publicId, u"html") ||
            EqualsNoCase(text(doctype.systemId), u"http://www.ibm.com/data/dtd/v11/ibmxhtml1-transitional.dtd") ||
            std::ranges::any_of(kQuirksIds, [&](std::u16string_view id) { return BeginsNoCase(publicId, id); }) ||
            (!doctype.systemId.present && (BeginsNoCase(publicId, u"-//w3c//dtd html 4.01 frameset//") ||
                                           BeginsNoCase(publicId, u"-//w3c//dtd html 4.01 transitional//")));
  return true;
}

bool TreeBuilder::BeforeHtml(Token& token) {
  switch (token.kind) {
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kComment:
      InsertComment(token, {kDocument, 0});
      return true;
    case TokenKind::kText:
      if (LeadingBlanks(token, false)) return true;
      break;
    case TokenKind::kEndTag:
      if (token.name != kHead && token.name != kBody && token.name != kHtml && token.name != kBr) return true;
      break;
    default:
      break;
  }
  mode_ = Mode::kBeforeHead;
  const bool own = token.kind == TokenKind::kStartTag && token.name == kHtml;
  const NodeId root = NewElement(kHtml, Space::kHtml, own ? TakeAttributes(token) : 0);
  tree_.Append(kDocument, root);
  Push(root, kHtml, Space::kHtml);
  return own;
}

bool TreeBuilder::BeforeHead(Token& token) {
  switch (token.kind) {
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kText:
      if (LeadingBlanks(token, false)) return true;
      break;
    case TokenKind::kStartTag:
      if (token.name == kHtml) return InBody(token);
      if (token.name == kHead) {
        head_ = Insert(token);
        mode_ = Mode::kInHead;
        return true;
      }
      break;
    case TokenKind::kEndTag:
      if (token.name != kHead && token.name != kBody && token.name != kHtml && token.name != kBr) return true;
      break;
    default:
      break;
  }
  head_ = InsertImplied(kHead);
  mode_ = Mode::kInHead;
  return false;
}

bool TreeBuilder::TextElement(Token& token, TextMode mode) {
  Insert(token);
  tokenizer_.SetTextMode(mode, token.name);
  originalMode_ = mode_;
  mode_ = Mode::kText;
  return true;
}

void TreeBuilder::EndTemplate() {
  if (!IsOpen(kTemplate)) return;
  while ((Top().kinds & kImpliedThoroughly) != 0) Pop();
  PopUntil({kTemplate});
  ClearToMarker();
  if (!templateModes_.empty()) templateModes_.Pop();
  ResetMode();
}

bool TreeBuilder::InHead(Token& token) {
  switch (token.kind) {
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kText:
      if (LeadingBlanks(token, true)) return true;
      break;
    case TokenKind::kStartTag:
      switch (token.name) {
        case kHtml:
          return InBody(token);
        case kBase:
        case kBasefont:
        case kBgsound:
        case kLink:
        case kMeta:
          InsertVoid(token);
          return true;
        case kTitle:
          return TextElement(token, TextMode::kRcdata);
        case kNoscript:
          if (noscriptIsText_) return TextElement(token, TextMode::kRawText);
          Insert(token);
          mode_ = Mode::kInHeadNoscript;
          return true;
        case kNoframes:
        case kStyle:
          return TextElement(token, TextMode::kRawText);
        case kScript:
          return TextElement(token, TextMode::kScript);
        case kTemplate:
          // Room is made first: closing an element there may set the mode.
          Insert(token);
          PushMarker();
          framesetOk_ = false;
          mode_ = Mode::kInTemplate;
          templateModes_.Push(Mode::kInTemplate);
          return true;
        case kHead:
          return true;
        default:
          break;
      }
      break;
    case TokenKind::kEndTag:
      switch (token.name) {
        case kTemplate:
          EndTemplate();
          return true;
        case kHead:
          Pop();
          mode_ = Mode::kAfterHead;
          return true;
        case kBody:
        case kHtml:
        case kBr:
          break;
        default:
          return true;
      }
      break;
    default:
      break;
  }
  Pop();
  mode_ = Mode::kAfterHead;
  return false;
}

bool TreeBuilder::InHeadNoscript(Token& token) {
  switch (token.kind) {
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kComment:
      return InHead(token);
    case TokenKind::kText:
      if (LeadingBlanks(token, true)) return true;
      break;
    case TokenKind::kStartTag:
      switch (token.name) {
        case kHtml:
          return InBody(token);
        case kBasefont:
        case kBgsound:
        case kLink:
        case kMeta:
        case kNoframes:
        case kStyle:
          return InHead(token);
        case kHead:
        case kNoscript:
          return true;
        default:
          break;
      }
      break;
    case TokenKind::kEndTag:
      if (token.name == kNoscript) {
        Pop();
        mode_ = Mode::kInHead;
        return true;
      }
      if (token.name != kBr) return true;
      break;
    default:
      break;
  }
  Pop();
  mode_ = Mode::kInHead;
  return false;
}

bool TreeBuilder::AfterHead(Token& token) {
  switch (token.kind) {
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kText:
      if (LeadingBlanks(token, true)) return true;
      break;
    case TokenKind::kStartTag:
      switch (token.name) {
        case kHtml:
          return InBody(token);
        case kBody:
          Insert(token);
          framesetOk_ = false;
          mode_ = Mode::kInBody;
          return true;
        case kFrameset:
          Insert(token);
          mode_ = Mode::kInFrameset;
          return true;
        case kBase:
        case kBasefont:
        case kBgsound:
        case kLink:
        case kMeta:
        case kNoframes:
        case kScript:
        case kStyle:
        case kTemplate:
        case kTitle: {
          Push(head_, kHead, Space::kHtml);
          InHead(token);
          if (const std::size_t at = FindOpen(head_); at != kNone) RemoveOpen(at);
          return true;
        }
        case kHead:
          return true;
        default:
          break;
      }
      break;
    case TokenKind::kEndTag:
      if (token.name == kTemplate) return InHead(token);
      if (token.name != kBody && token.name != kHtml && token.name != kBr) return true;
      break;
    default:
      break;
  }
  InsertImplied(kBody);
  mode_ = Mode::kInBody;
  return false;
}

bool TreeBuilder::Text(Token& token) {
  if (token.kind == TokenKind::kText) {
    InsertText(token);
    return true;
  }
  Pop();
  mode_ = originalMode_;
  return token.kind == TokenKind::kEndTag;
}

bool TreeBuilder::InTemplate(Token& token) {
  switch (token.kind) {
    case TokenKind::kText:
    case TokenKind::kNulls:
    case TokenKind::kComment:
    case TokenKind::kDoctype:
      return InBody(token);
    case TokenKind::kStartTag: {
      Mode next = Mode::kInBody;
      switch (token.name) {
        case kBase:
        case kBasefont:
        case kBgsound:
        case kLink:
        case kMeta:
        case kNoframes:
        case kScript:
        case kStyle:
        case kTemplate:
        case kTitle:
          return InHead(token);
        case kCaption:
        case kColgroup:
        case kTbody:
        case kTfoot:
        case kThead:
          next = Mode::kInTable;
          break;
        case kCol:
          next = Mode::kInColumnGroup;
          break;
        case kTr:
          next = Mode::kInTableBody;
          break;
        case kTd:
        case kTh:
          next = Mode::kInRow;
          break;
        default:
          break;
      }
      if (!templateModes_.empty()) templateModes_.back() = next;
      mode_ = next;
      return false;
    }
    case TokenKind::kEndTag:
      return token.name != kTemplate || InHead(token);
    case TokenKind::kEnd:
      if (!IsOpen(kTemplate)) return true;
      PopUntil({kTemplate});
      ClearToMarker();
      if (!templateModes_.empty()) templateModes_.Pop();
      ResetMode();
      return false;
  }
  return true;
}

bool TreeBuilder::AfterBody(Token& token) {
  switch (token.kind) {
    case TokenKind::kText: {
      Token blanks = token;
      const bool all = LeadingBlanks(token, false);
      blanks.length -= token.length;
      if (blanks.length != 0) InBody(blanks);
      if (all) return true;
      break;
    }
    case TokenKind::kComment:
      InsertComment(token, {open_[0].node, 0});
      return true;
    case TokenKind::kDoctype:
    case TokenKind::kEnd:
      return true;
    case TokenKind::kStartTag:
      if (token.name == kHtml) return InBody(token);
      break;
    case TokenKind::kEndTag:
      if (token.name == kHtml) {
        mode_ = Mode::kAfterAfterBody;
        return true;
      }
      break;
    case TokenKind::kNulls:
      break;
  }
  mode_ = Mode::kInBody;
  return false;
}

bool TreeBuilder::InFrameset(Token& token) {
  switch (token.kind) {
    case TokenKind::kText:
      KeepBlanks(token);
      if (token.length == 0) return true;
      if (mode_ == Mode::kAfterAfterFrameset) return InBody(token);
      InsertText(token);
      return true;
    case TokenKind::kNulls:
      DropNulls(token);
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kStartTag:
      if (token.name == kHtml) return InBody(token);
      if (token.name == kNoframes) return InHead(token);
      if (mode_ == Mode::kInFrameset && token.name == kFrameset) {
        Insert(token);
      } else if (mode_ == Mode::kInFrameset && token.name == kFrame) {
        InsertVoid(token);
      }
      return true;
    case TokenKind::kEndTag:
      if (mode_ == Mode::kInFrameset && token.name == kFrameset && open_.size() > 1) {
        Pop();
        if (Top().key != kFrameset) mode_ = Mode::kAfterFrameset;
      }
      return true;
    case TokenKind::kEnd:
      return true;
  }
  return true;
}

bool TreeBuilder::AfterFrameset(Token& token) {
  if (token.kind == TokenKind::kEndTag && token.name == kHtml) {
    mode_ = Mode::kAfterAfterFrameset;
    return true;
  }
  return InFrameset(token);
}

bool TreeBuilder::AfterAfterBody(Token& token) {
  if (token.kind == TokenKind::kComment) {
    InsertComment(token, {kDocument, 0});
    return true;
  }
  if (token.kind == TokenKind::kEndTag) {
    mode_ = Mode::kInBody;
    return false;
  }
  return AfterBody(token);
}

bool TreeBuilder::AfterAfterFrameset(Token& token) {
  if (token.kind == TokenKind::kComment) {
    InsertComment(token, {kDocument, 0});
    return true;
  }
  return InFrameset(token);
}

// ---- SVG and MathML

bool TreeBuilder::IsForeign(const Token& token) const {
  if (open_.empty() || Top().key < kForeign || token.kind == TokenKind::kEnd) return false;
  const std::uint32_t key = Top().key;
  const bool text = token.kind == TokenKind::kText || token.kind == TokenKind::kNulls;
  const bool startTag = token.kind == TokenKind::kStartTag;
  if (IsMathMlTextPoint(key)) return !(text || (startTag && token.name != kMglyph && token.name != kMalignmark));
  if (IsSvgHtmlPoint(key)) return !(text || startTag);
  if (key == (kAnnotationXml | kMathMlSpace)) {
    if (startTag && token.name == kSvg) return false;
    const std::u16string_view encoding = tree_.AttributeText(Top().node, kEncoding);
    const bool html = EqualsNoCase(encoding, u"text/html") || EqualsNoCase(encoding, u"application/xhtml+xml");
    return !(html && (text || startTag));
  }
  return true;
}

bool TreeBuilder::ForeignContent(Token& token) {
  const auto leave = [this] {
    while (open_.size() > 1 && Top().key >= kForeign && !IsMathMlTextPoint(Top().key) && !IsSvgHtmlPoint(Top().key)) {
      if (Top().key == (kAnnotationXml | kMathMlSpace)) {
        const std::u16string_view encoding = tree_.AttributeText(Top().node, kEncoding);
        if (EqualsNoCase(encoding, u"text/html") || EqualsNoCase(encoding, u"application/xhtml+xml")) break;
      }
      Pop();
    }
  };
  switch (token.kind) {
    case TokenKind::kNulls:
      InsertText(token);
      return true;
    case TokenKind::kText:
      InsertText(token);
      if (framesetOk_ && HasInk(token.begin, token.length)) framesetOk_ = false;
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kDoctype:
    case TokenKind::kEnd:
      return true;
    case TokenKind::kStartTag: {
      bool leaves = (KindsOf(token.name) & kLeavesForeign) != 0;
      for (std::uint32_t i = 0; token.name == kFont && i < token.length; ++i) {
        const NameId name = tree_.attributes[token.begin + i].name;
        leaves = leaves || name == kColor || name == kFace || name == kSize;
      }
      if (leaves) {
        leave();
        return Dispatch(mode_, token);
      }
      const Space space = SpaceIn(Top().key);
      if (token.selfClosing) {
        InsertVoid(token, space);
      } else {
        Insert(token, space);
      }
      return true;
    }
    case TokenKind::kEndTag:
      if (token.name == kP || token.name == kBr) {
        leave();
        return Dispatch(mode_, token);
      }
      for (std::size_t i = open_.size(); i-- > 1;) {
        if (open_[i].key < kForeign) break;
        if (NameIn(open_[i].key) == token.name) {
          while (open_.size() > i) Pop();
          return true;
        }
      }
      return Dispatch(mode_, token);
  }
  return true;
}

}  // namespace zeph::html
