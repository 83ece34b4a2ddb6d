#include "qx_db/select/lexer.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

namespace qx::select {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
/// Of a word, behind its first letter. Bytes beyond ASCII are letters of some language.
bool IsInWord(char c) {
  return IsLetter(c) || IsDigit(c) || c == '_' || c == '-' || c == '.' ||
         static_cast<unsigned char>(c) >= 0x80;
}
bool BeginsWord(char c) { return IsInWord(c) && !IsDigit(c) && c != '-' && c != '.'; }

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  Result<std::vector<Token>> Read() {
    std::vector<Token> tokens;
    for (;;) {
      const std::size_t before = at_;
      while (at_ < text_.size() && IsBlank(text_[at_])) ++at_;
      Token token;
      token.at = at_;
      token.is_joined = at_ == before;
      if (at_ == text_.size()) {
        tokens.push_back(token);
        return tokens;
      }
      if (Outcome taken = Take(token); !taken) return taken.Error();
      tokens.push_back(std::move(token));
    }
  }

 private:
  char Next(std::size_t ahead) const {
    return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
  }
  bool BeginsNumber() const {
    const bool is_signed = Next(0) == '-' || Next(0) == '+';
    const char first = Next(is_signed);
    return IsDigit(first) || (first == '.' && IsDigit(Next(is_signed + std::size_t{1})));
  }

  Outcome Take(Token& token) {
    if (BeginsNumber()) return TakeNumber(token);
    if (BeginsWord(text_[at_])) {
      token.kind = Token::Kind::kWord;
      while (at_ < text_.size() && IsInWord(text_[at_])) ++at_;
      token.raw = text_.substr(token.at, at_ - token.at);
      return {};
    }
    if (text_[at_] == '"' || text_[at_] == '\'') return TakeText(token);
    for (const std::string_view sign : {"<=", ">=", "!=", "<", ">", "=", "(", ")", ",", ":", "-"}) {
      if (text_.substr(at_, sign.size()) != sign) continue;
      token.kind = Token::Kind::kSign;
      token.raw = text_.substr(at_, sign.size());
      at_ += sign.size();
      return {};
    }
    return FaultAt(text_, at_, fmt::format("\"{}\" means nothing here", text_[at_]),
                   "put names with signs in them in double quotes");
  }

  Outcome TakeNumber(Token& token) {
    const char* const begin = text_.data() + at_ + (Next(0) == '+');  // from_chars knows no plus
    const char* const end = text_.data() + text_.size();
    const auto [stop, error] = std::from_chars(begin, end, token.value);
    if (error != std::errc()) {
      return FaultAt(text_, at_, "the number is too large or too small", "write one within 1e308");
    }
    token.kind = Token::Kind::kNumber;
    token.raw = text_.substr(at_, static_cast<std::size_t>(stop - (text_.data() + at_)));
    at_ += token.raw.size();
    const std::size_t unit = at_;
    if (at_ < text_.size() && IsLetter(text_[at_])) {
      while (at_ < text_.size() && (IsLetter(text_[at_]) || IsDigit(text_[at_]))) ++at_;
    }
    token.unit = text_.substr(unit, at_ - unit);
    return {};
  }

  Outcome TakeText(Token& token) {
    const char quote = text_[at_++];
    const std::size_t end = text_.find(quote, at_);
    if (end == std::string_view::npos) {
      return FaultAt(text_, token.at, "the quote is not closed",
                     fmt::format("end the name with {}", quote));
    }
    token.kind = Token::Kind::kText;
    token.text = text_.substr(at_, end - at_);
    at_ = end + 1;
    token.raw = text_.substr(token.at, at_ - token.at);
    return {};
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

}  // namespace

Failure FaultAt(std::string_view text, std::size_t at, std::string what, std::string remedy) {
  const auto begins_character = [](char c) { return (static_cast<unsigned char>(c) >> 6) != 2; };
  const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(at, text.size()));
  const auto column = 1 + std::count_if(text.begin(), end, begins_character);
  return {"", fmt::format("where: column {}", column), std::move(what), std::move(remedy)};
}

Result<std::vector<Token>> Tokens(std::string_view text) { return Reader(text).Read(); }

}  // namespace qx::select
