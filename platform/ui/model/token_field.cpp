// Token fields: the tokens of their value.
#include "tq/platform/ui/model/token_field.h"

#include "tq/platform/base/character_set.h"

namespace tq {

std::vector<String> TokenFieldCell::tokens() const {
  std::vector<String> out;
  const std::u16string_view value = stringValue().view();
  const std::u16string_view separators = tokenizing_.view();
  std::size_t start = 0;
  while (start <= value.size()) {
    std::size_t end = value.find_first_of(separators, start);
    if (end == std::u16string_view::npos) end = value.size();
    String piece = String(value.substr(start, end - start))
                       .stringByTrimmingCharactersInSet(CharacterSet::whitespaceAndNewlineCharacterSet());
    if (piece.length() > 0) out.push_back(std::move(piece));
    start = end + 1;
  }
  return out;
}

void TokenFieldCell::setTokens(std::vector<String> tokens) {
  std::u16string joined;
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    if (i > 0) joined += std::u16string(1, tokenizing_.view()[0]) + u" ";
    joined += tokens[i].view();
  }
  setStringValue(String(joined));
}

void TokenFieldCell::setTokenizingCharacters(String characters) {
  tokenizing_ = characters.length() > 0 ? std::move(characters) : String(u",");
}

TokenField::TokenField() : TextField(NoDefaultCell{}) { setCell(std::make_shared<TokenFieldCell>()); }

std::vector<String> TokenField::tokens() const {
  auto c = tokenFieldCell();
  return c ? c->tokens() : std::vector<String>{};
}

}  // namespace tq
