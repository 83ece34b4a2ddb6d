#pragma once
// Just enough of a bulk data deck to read grid points, systems and bars from the corpus.

#include <algorithm>
#include <charconv>
#include <fstream>
#include <string>
#include <vector>

namespace qx {

/// The cards of a deck, each a list of fields with its name first; continuations are joined.
inline std::vector<std::vector<std::string>> ReadCards(const std::string& path) {
  const auto trimmed = [](std::string text) {
    text.erase(0, text.find_first_not_of(" \t\r"));
    text.erase(text.find_last_not_of(" \t\r") + 1);
    return text;
  };
  std::vector<std::vector<std::string>> cards;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    line.resize(std::min(line.find('$'), line.size()));
    if (trimmed(line).empty()) continue;
    std::vector<std::string> fields;
    if (const auto separator = line.find_first_of(",\t"); separator != std::string::npos) {
      for (std::size_t begin = 0; begin <= line.size();) {
        const std::size_t end = std::min(line.find_first_of(",\t", begin), line.size());
        fields.push_back(trimmed(line.substr(begin, end - begin)));
        begin = end + 1;
      }
    } else {
      const std::size_t width = line.substr(0, 8).find('*') == std::string::npos ? 8 : 16;
      fields.push_back(trimmed(line.substr(0, 8)));
      for (std::size_t i = 8; i < std::min<std::size_t>(line.size(), 72); i += width) {
        fields.push_back(trimmed(line.substr(i, width)));
      }
      fields.resize(width == 8 ? 9 : 5);
    }
    std::string name = fields[0];
    const bool continues = name.empty() || name[0] == '+' || name[0] == '*';
    if (continues && !cards.empty()) {
      cards.back().insert(cards.back().end(), fields.begin() + 1, fields.end());
      continue;
    }
    if (!name.empty() && name.back() == '*') fields[0].pop_back();
    cards.push_back(std::move(fields));
  }
  return cards;
}

inline double Real(const std::vector<std::string>& card, std::size_t field) {
  double value = 0;
  if (field < card.size()) {
    const std::string& text = card[field];
    std::from_chars(text.data(), text.data() + text.size(), value);
  }
  return value;
}

inline int Integer(const std::vector<std::string>& card, std::size_t field) {
  return static_cast<int>(Real(card, field));
}

}  // namespace qx
