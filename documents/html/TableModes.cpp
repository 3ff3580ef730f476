// SPDX-License-Identifier: Apache-2.0
#include "documents/html/TreeConstruction.h"

namespace zeph::html {

using namespace name;  // the known names, which every line below is about

bool TreeBuilder::InTable(Token& token) {
  switch (token.kind) {
    case TokenKind::kText:
    case TokenKind::kNulls:
      switch (Top().key) {
        case kTable:
        case kTbody:
        case kTemplate:
        case kTfoot:
        case kThead:
        case kTr:
          pendingLength_ = 0;
          originalMode_ = mode_;
          mode_ = Mode::kInTableText;
          return false;
        default:
          break;
      }
      break;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kStartTag:
      switch (token.name) {
        case kCaption:
          ClearBackTo({kTable, kTemplate});
          PushMarker();
          Insert(token);
          mode_ = Mode::kInCaption;
          return true;
        case kColgroup:
          ClearBackTo({kTable, kTemplate});
          Insert(token);
          mode_ = Mode::kInColumnGroup;
          return true;
        case kCol:
          ClearBackTo({kTable, kTemplate});
          InsertImplied(kColgroup);
          mode_ = Mode::kInColumnGroup;
          return false;
        case kTbody:
        case kTfoot:
        case kThead:
          ClearBackTo({kTable, kTemplate});
          Insert(token);
          mode_ = Mode::kInTableBody;
          return true;
        case kTd:
        case kTh:
        case kTr:
          ClearBackTo({kTable, kTemplate});
          InsertImplied(kTbody);
          mode_ = Mode::kInTableBody;
          return false;
        case kTable:
          if (!AnyInTableScope({kTable})) return true;
          PopUntil({kTable});
          ResetMode();
          return false;
        case kStyle:
        case kScript:
        case kTemplate:
          return InHead(token);
        case kInput: {
          bool hidden = false;
          for (std::uint32_t i = 0; i < token.length; ++i) {
            const Attribute& item = tree_.attributes[token.begin + i];
            hidden = hidden || (item.name == kType && EqualsNoCase(tree_.TextOf(item), u"hidden"));
          }
          if (!hidden) break;
          InsertVoid(token);
          return true;
        }
        case kForm:
          if (form_ != 0 || IsOpen(kTemplate)) return true;
          form_ = Insert(token);
          Pop();
          return true;
        default:
          break;
      }
      break;
    case TokenKind::kEndTag:
      switch (token.name) {
        case kTable:
          if (!AnyInTableScope({kTable})) return true;
          PopUntil({kTable});
          ResetMode();
          return true;
        case kBody:
        case kCaption:
        case kCol:
        case kColgroup:
        case kHtml:
        case kTbody:
        case kTd:
        case kTfoot:
        case kTh:
        case kThead:
        case kTr:
          return true;
        case kTemplate:
          return InHead(token);
        default:
          break;
      }
      break;
    case TokenKind::kEnd:
      return InBody(token);
  }
  foster_ = true;
  const bool handled = InBody(token);
  foster_ = false;
  return handled;
}

bool TreeBuilder::InTableText(Token& token) {
  if (token.kind == TokenKind::kNulls) {
    DropNulls(token);
    return true;
  }
  if (token.kind == TokenKind::kText) {
    if (pendingLength_ == 0) pendingBegin_ = token.begin;
    pendingLength_ += token.length;
    return true;
  }
  mode_ = originalMode_;
  if (pendingLength_ == 0) return false;
  if (HasInk(pendingBegin_, pendingLength_)) {
    foster_ = true;
    Reconstruct();
    InsertText(pendingBegin_, pendingLength_);
    foster_ = false;
    framesetOk_ = false;
  } else {
    InsertText(pendingBegin_, pendingLength_);
  }
  return false;
}

bool TreeBuilder::InCaption(Token& token) {
  bool closes = false;
  if (token.kind == TokenKind::kStartTag) {
    switch (token.name) {
      case kCaption:
      case kCol:
      case kColgroup:
      case kTbody:
      case kTd:
      case kTfoot:
      case kTh:
      case kThead:
      case kTr:
        closes = true;
        break;
      default:
        break;
    }
  } else if (token.kind == TokenKind::kEndTag) {
    switch (token.name) {
      case kCaption:
      case kTable:
        closes = true;
        break;
      case kBody:
      case kCol:
      case kColgroup:
      case kHtml:
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
  }
  if (!closes) return InBody(token);
  if (!AnyInTableScope({kCaption})) return true;
  ImplyEndTags();
  PopUntil({kCaption});
  ClearToMarker();
  mode_ = Mode::kInTable;
  return token.kind == TokenKind::kEndTag && token.name == kCaption;
}

bool TreeBuilder::InColumnGroup(Token& token) {
  switch (token.kind) {
    case TokenKind::kText:
      if (LeadingBlanks(token, true)) return true;
      break;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kStartTag:
      if (token.name == kHtml) return InBody(token);
      if (token.name == kTemplate) return InHead(token);
      if (token.name == kCol) {
        InsertVoid(token);
        return true;
      }
      break;
    case TokenKind::kEndTag:
      if (token.name == kTemplate) return InHead(token);
      if (token.name == kCol) return true;
      if (token.name == kColgroup) {
        if (Top().key != kColgroup) return true;
        Pop();
        mode_ = Mode::kInTable;
        return true;
      }
      break;
    case TokenKind::kEnd:
      return InBody(token);
    case TokenKind::kNulls:
      break;
  }
  if (Top().key != kColgroup) {
    if (token.kind == TokenKind::kNulls) DropNulls(token);
    if (token.kind == TokenKind::kText) {
      KeepBlanks(token);
      if (token.length != 0) InsertText(token);
    }
    return true;
  }
  Pop();
  mode_ = Mode::kInTable;
  return false;
}

bool TreeBuilder::InTableBody(Token& token) {
  bool closes = false;
  if (token.kind == TokenKind::kStartTag) {
    switch (token.name) {
      case kTr:
        ClearBackTo({kTbody, kTfoot, kThead, kTemplate});
        Insert(token);
        mode_ = Mode::kInRow;
        return true;
      case kTd:
      case kTh:
        ClearBackTo({kTbody, kTfoot, kThead, kTemplate});
        InsertImplied(kTr);
        mode_ = Mode::kInRow;
        return false;
      case kCaption:
      case kCol:
      case kColgroup:
      case kTbody:
      case kTfoot:
      case kThead:
        closes = true;
        break;
      default:
        break;
    }
  } else if (token.kind == TokenKind::kEndTag) {
    switch (token.name) {
      case kTbody:
      case kTfoot:
      case kThead:
        if (!AnyInTableScope({token.name})) return true;
        ClearBackTo({kTbody, kTfoot, kThead, kTemplate});
        Pop();
        mode_ = Mode::kInTable;
        return true;
      case kTable:
        closes = true;
        break;
      case kBody:
      case kCaption:
      case kCol:
      case kColgroup:
      case kHtml:
      case kTd:
      case kTh:
      case kTr:
        return true;
      default:
        break;
    }
  }
  if (!closes) return InTable(token);
  if (!AnyInTableScope({kTbody, kThead, kTfoot})) return true;
  ClearBackTo({kTbody, kTfoot, kThead, kTemplate});
  Pop();
  mode_ = Mode::kInTable;
  return false;
}

bool TreeBuilder::InRow(Token& token) {
  bool closes = false;
  if (token.kind == TokenKind::kStartTag) {
    switch (token.name) {
      case kTd:
      case kTh:
        ClearBackTo({kTr, kTemplate});
        Insert(token);
        mode_ = Mode::kInCell;
        PushMarker();
        return true;
      case kCaption:
      case kCol:
      case kColgroup:
      case kTbody:
      case kTfoot:
      case kThead:
      case kTr:
        closes = true;
        break;
      default:
        break;
    }
  } else if (token.kind == TokenKind::kEndTag) {
    switch (token.name) {
      case kTr:
      case kTable:
        closes = true;
        break;
      case kTbody:
      case kTfoot:
      case kThead:
        if (!AnyInTableScope({token.name})) return true;
        closes = true;
        break;
      case kBody:
      case kCaption:
      case kCol:
      case kColgroup:
      case kHtml:
      case kTd:
      case kTh:
        return true;
      default:
        break;
    }
  }
  if (!closes) return InTable(token);
  if (!AnyInTableScope({kTr})) return true;
  ClearBackTo({kTr, kTemplate});
  Pop();
  mode_ = Mode::kInTableBody;
  return token.kind == TokenKind::kEndTag && token.name == kTr;
}

bool TreeBuilder::InCell(Token& token) {
  if (token.kind == TokenKind::kStartTag) {
    switch (token.name) {
      case kCaption:
      case kCol:
      case kColgroup:
      case kTbody:
      case kTd:
      case kTfoot:
      case kTh:
      case kThead:
      case kTr:
        if (!AnyInTableScope({kTd, kTh})) return true;
        CloseCell();
        return false;
      default:
        break;
    }
  } else if (token.kind == TokenKind::kEndTag) {
    switch (token.name) {
      case kTd:
      case kTh:
        if (!AnyInTableScope({token.name})) return true;
        ImplyEndTags();
        PopUntil({token.name});
        ClearToMarker();
        mode_ = Mode::kInRow;
        return true;
      case kBody:
      case kCaption:
      case kCol:
      case kColgroup:
      case kHtml:
        return true;
      case kTable:
      case kTbody:
      case kTfoot:
      case kThead:
      case kTr:
        if (!AnyInTableScope({token.name})) return true;
        CloseCell();
        return false;
      default:
        break;
    }
  }
  return InBody(token);
}

}  // namespace zeph::html
