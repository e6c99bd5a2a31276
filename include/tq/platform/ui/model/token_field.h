// TokenField and TokenFieldCell: a text field whose value is a list of tokens, each shown as a
// rounded label (NSTokenField).
//
// The tokens are the cell's string value cut at the tokenizing characters (a comma unless archived
// otherwise), each trimmed of white space, empty pieces dropped. Setting tokens (as the readers do
// with a list the archive keeps) sets the string value: the tokens joined with the first
// tokenizing character and a space.
// Thread: the interface (main) thread.
#pragma once

#include <vector>

#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/text_field_cell.h"

namespace tq {

class TokenFieldCell : public TextFieldCell {
 public:
  using TextFieldCell::TextFieldCell;
  String className() const override { return classNameOr(u"NSTokenFieldCell"); }
  std::shared_ptr<Cell> copy() const override { return copyOf(*this); }

  std::vector<String> tokens() const;
  void setTokens(std::vector<String> tokens);
  // The characters that end a token (never empty: "," when none was given).
  const String& tokenizingCharacters() const { return tokenizing_; }
  void setTokenizingCharacters(String characters);

 private:
  String tokenizing_ = u",";
};

class TokenField : public TextField {
 public:
  // A token field with a fresh TokenFieldCell.
  TokenField();
  explicit TokenField(NoDefaultCell none) : TextField(none) {}
  String className() const override { return classNameOr(u"NSTokenField"); }
  std::shared_ptr<TokenFieldCell> tokenFieldCell() const { return cellAs<TokenFieldCell>(); }
  // The cell's tokens (empty when the cell is not a token field cell).
  std::vector<String> tokens() const;
};

}  // namespace tq
