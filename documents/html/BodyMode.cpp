// SPDX-License-Identifier: Apache-2.0
#include <utility>

#include "documents/html/TreeConstruction.h"

namespace zeph::html {

using namespace name;  // the known names, which every line below is about

bool TreeBuilder::InBody(Token& token) {
  switch (token.kind) {
    case TokenKind::kNulls:
      DropNulls(token);
      return true;
    case TokenKind::kText:
      Reconstruct();
      InsertText(token);
      if (framesetOk_ && HasInk(token.begin, token.length)) framesetOk_ = false;
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kStartTag:
      return StartTagInBody(token);
    case TokenKind::kEndTag:
      return EndTagInBody(token);
    case TokenKind::kEnd:
      return templateModes_.empty() || InTemplate(token);
  }
  return true;
}

bool TreeBuilder::StartTagInBody(Token& token) {
  switch (token.name) {
    case kHtml:
      if (!IsOpen(kTemplate)) MergeAttributes(token, open_[0].node, 1);
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
    case kTitle:
      return InHead(token);
    case kBody:
      if (!SecondIsBody() || IsOpen(kTemplate)) return true;
      framesetOk_ = false;
      MergeAttributes(token, open_[1].node, 2);
      return true;
    case kFrameset:
      if (!SecondIsBody() || !framesetOk_) return true;
      tree_.Detach(open_[1].node);
      while (open_.size() > 1) Pop();
      Insert(token);
      mode_ = Mode::kInFrameset;
      return true;
    case kAddress:
    case kArticle:
    case kAside:
    case kBlockquote:
    case kCenter:
    case kDetails:
    case kDialog:
    case kDir:
    case kDiv:
    case kDl:
    case kFieldset:
    case kFigcaption:
    case kFigure:
    case kFooter:
    case kHeader:
    case kHgroup:
    case kMain:
    case kMenu:
    case kNav:
    case kOl:
    case kP:
    case kSearch:
    case kSection:
    case kSummary:
    case kUl:
      CloseParagraphInButtonScope();
      Insert(token);
      return true;
    case kH1:
    case kH2:
    case kH3:
    case kH4:
    case kH5:
    case kH6:
      CloseParagraphInButtonScope();
      if ((Top().kinds & kHeading) != 0) Pop();
      Insert(token);
      return true;
    case kPre:
    case kListing:
      CloseParagraphInButtonScope();
      Insert(token);
      ignoreLineFeed_ = true;
      framesetOk_ = false;
      return true;
    case kForm:
      if (form_ != 0 && !IsOpen(kTemplate)) return true;
      CloseParagraphInButtonScope();
      Insert(token);
      if (!IsOpen(kTemplate)) form_ = Top().node;
      return true;
    case kLi:
    case kDd:
    case kDt: {
      framesetOk_ = false;
      const bool listItem = token.name == kLi;
      for (std::size_t i = open_.size(); i-- > 0;) {
        const std::uint32_t key = open_[i].key;
        if (listItem ? key == kLi : key == kDd || key == kDt) {
          ImplyEndTags(key);
          PopUntil({key});
          break;
        }
        if ((open_[i].kinds & kSpecial) != 0 && key != kAddress && key != kDiv && key != kP) break;
      }
      CloseParagraphInButtonScope();
      Insert(token);
      return true;
    }
    case kPlaintext:
      CloseParagraphInButtonScope();
      Insert(token);
      tokenizer_.SetTextMode(TextMode::kPlainText, kPlaintext);
      return true;
    case kButton:
      if (InScope(kButton)) {
        ImplyEndTags();
        PopUntil({kButton});
      }
      Reconstruct();
      Insert(token);
      framesetOk_ = false;
      return true;
    case kA:
      if (const std::size_t format = FindFormatByName(kA); format != kNone) {
        const NodeId node = formats_[format].node;
        AdoptionAgency(kA);
        if (const std::size_t at = FindFormat(node); at != kNone) formats_.Erase(at);
        if (const std::size_t at = FindOpen(node); at != kNone) RemoveOpen(at);
      }
      Reconstruct();
      InsertFormatting(token);
      return true;
    case kB:
    case kBig:
    case kCode:
    case kEm:
    case kFont:
    case kI:
    case kS:
    case kSmall:
    case kStrike:
    case kStrong:
    case kTt:
    case kU:
      Reconstruct();
      InsertFormatting(token);
      return true;
    case kNobr:
      Reconstruct();
      if (InScope(kNobr)) {
        AdoptionAgency(kNobr);
        Reconstruct();
      }
      InsertFormatting(token);
      return true;
    case kApplet:
    case kMarquee:
    case kObject:
      Reconstruct();
      Insert(token);
      PushMarker();
      framesetOk_ = false;
      return true;
    case kTable:
      if (!tree_.quirks) CloseParagraphInButtonScope();
      Insert(token);
      framesetOk_ = false;
      mode_ = Mode::kInTable;
      return true;
    case kArea:
    case kBr:
    case kEmbed:
    case kImg:
    case kKeygen:
    case kWbr:
      Reconstruct();
      InsertVoid(token);
      framesetOk_ = false;
      return true;
    case kImage:
      token.name = kImg;
      return StartTagInBody(token);
    case kInput: {
      if (InScope(kSelect)) PopUntil({kSelect});
      Reconstruct();
      InsertVoid(token);
      const NodeId node = static_cast<NodeId>(tree_.nodes.size() - 1);
      if (!EqualsNoCase(tree_.AttributeText(node, kType), u"hidden")) framesetOk_ = false;
      return true;
    }
    case kParam:
    case kSource:
    case kTrack:
      InsertVoid(token);
      return true;
    case kHr:
      CloseParagraphInButtonScope();
      if (InScope(kSelect)) ImplyEndTags();
      InsertVoid(token);
      framesetOk_ = false;
      return true;
    case kTextarea:
      TextElement(token, TextMode::kRcdata);
      ignoreLineFeed_ = true;
      framesetOk_ = false;
      return true;
    case kXmp:
      CloseParagraphInButtonScope();
      Reconstruct();
      framesetOk_ = false;
      return TextElement(token, TextMode::kRawText);
    case kIframe:
      framesetOk_ = false;
      return TextElement(token, TextMode::kRawText);
    case kNoembed:
      return TextElement(token, TextMode::kRawText);
    case kNoscript:
      if (noscriptIsText_) return TextElement(token, TextMode::kRawText);
      break;
    case kSelect:
      if (InScope(kSelect)) {  // a second one only ends the first
        PopUntil({kSelect});
        return true;
      }
      Reconstruct();
      Insert(token);
      framesetOk_ = false;
      return true;
    case kOptgroup:
    case kOption:
      if (InScope(kSelect)) {
        ImplyEndTags(token.name == kOption ? kOptgroup : kKnownCount);
      } else if (Top().key == kOption) {
        Pop();
      }
      Reconstruct();
      Insert(token);
      return true;
    case kRb:
    case kRtc:
      if (InScope(kRuby)) ImplyEndTags();
      Insert(token);
      return true;
    case kRp:
    case kRt:
      if (InScope(kRuby)) ImplyEndTags(kRtc);
      Insert(token);
      return true;
    case kMath:
    case kSvg: {
      Reconstruct();
      const Space space = token.name == kMath ? Space::kMathMl : Space::kSvg;
      if (token.selfClosing) {
        InsertVoid(token, space);
      } else {
        Insert(token, space);
      }
      return true;
    }
    case kCaption:
    case kCol:
    case kColgroup:
    case kFrame:
    case kHead:
    case kTbody:
    case kTd:
    case kTfoot:
    case kTh:
    case kThead:
    case kTr:
      return true;
    default:
      break;
  }
  Reconstruct();
  Insert(token);
  return true;
}

bool TreeBuilder::EndTagInBody(Token& token) {
  switch (token.name) {
    case kTemplate:
      return InHead(token);
    case kBody:
    case kHtml:
      if (!InScope(kBody)) return true;
      mode_ = Mode::kAfterBody;
      return token.name == kBody;
    case kAddress:
    case kArticle:
    case kAside:
    case kBlockquote:
    case kButton:
    case kCenter:
    case kDetails:
    case kDialog:
    case kDir:
    case kDiv:
    case kDl:
    case kFieldset:
    case kFigcaption:
    case kFigure:
    case kFooter:
    case kHeader:
    case kHgroup:
    case kListing:
    case kMain:
    case kMenu:
    case kNav:
    case kOl:
    case kPre:
    case kSearch:
    case kSection:
    case kSelect:
    case kSummary:
    case kUl:
      if (!InScope(token.name)) return true;
      ImplyEndTags();
      PopUntil({token.name});
      return true;
    case kForm: {
      if (IsOpen(kTemplate)) {
        if (!InScope(kForm)) return true;
        ImplyEndTags();
        PopUntil({kForm});
        return true;
      }
      const NodeId node = std::exchange(form_, 0);
      const std::size_t at = node == 0 ? kNone : FindOpen(node);
      if (at == kNone) return true;
      for (std::size_t i = open_.size() - 1; i > at; --i) {
        if ((open_[i].kinds & kScope) != 0) return true;
      }
      ImplyEndTags();
      RemoveOpen(at);
      return true;
    }
    case kP:
      if (!InScope(kP, kScope | kButtonScope)) InsertImplied(kP);
      CloseParagraph();
      return true;
    case kLi:
      if (!InScope(kLi, kScope | kListScope)) return true;
      ImplyEndTags(kLi);
      PopUntil({kLi});
      return true;
    case kDd:
    case kDt:
      if (!InScope(token.name)) return true;
      ImplyEndTags(token.name);
      PopUntil({token.name});
      return true;
    case kH1:
    case kH2:
    case kH3:
    case kH4:
    case kH5:
    case kH6:
      if (!InScope(kH1) && !InScope(kH2) && !InScope(kH3) && !InScope(kH4) && !InScope(kH5) && !InScope(kH6)) {
        return true;
      }
      ImplyEndTags();
      PopUntil({kH1, kH2, kH3, kH4, kH5, kH6});
      return true;
    case kA:
    case kB:
    case kBig:
    case kCode:
    case kEm:
    case kFont:
    case kI:
    case kNobr:
    case kS:
    case kSmall:
    case kStrike:
    case kStrong:
    case kTt:
    case kU:
      AdoptionAgency(token.name);
      return true;
    case kApplet:
    case kMarquee:
    case kObject:
      if (!InScope(token.name)) return true;
      ImplyEndTags();
      PopUntil({token.name});
      ClearToMarker();
      return true;
    case kBr:
      Reconstruct();
      InsertVoid(token);
      framesetOk_ = false;
      return true;
    default:
      EndTagOfAnyOther(token.name);
      return true;
  }
}

void TreeBuilder::EndTagOfAnyOther(NameId name) {
  if (name < kKnownCount && !IsOpen(name)) return;
  for (std::size_t i = open_.size(); i-- > 0;) {
    if (open_[i].key == name) {
      ImplyEndTags(name);
      while (open_.size() > i) Pop();
      return;
    }
    if ((open_[i].kinds & kSpecial) != 0) return;
  }
}

}  // namespace zeph::html
