#pragma once
// The records of universal files: lines of numbers in columns, and the datasets they are in.
// Threads: shares nothing; one at a time for each object.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/text_lines.h"

namespace qx::exchange {

/// The lines of one dataset, between its delimiters. What is wrong with one sticks to the dataset:
/// the next one is read again.
class UnvText {
 public:
  explicit UnvText(std::string_view text) : lines_(text) {}

  /// Goes on to the next dataset; false at the end of the file. What of the last one was not read
  /// is passed over.
  bool NextDataset();
  /// "2411", "58b": the first word of its first line.
  const std::string& Name() const { return name_; }
  /// Whether the line that was read last is its last one, or something is wrong with it.
  bool IsOver() const { return is_over_ || !wrong_.empty(); }
  /// Whether the file ended before the dataset did.
  bool IsCut() const { return is_cut_; }
  /// What is wrong with it and where; "" for nothing.
  const std::string& Wrong() const { return wrong_; }
  const std::string& WrongPlace() const { return wrong_place_; }
  void Fail(std::string what);
  /// Passes over what is left of a dataset and takes what was wrong with it for told.
  void PassOver() {
    wrong_.clear();
    (void)Rest();
  }
  std::string Place() const { return lines_.Place(); }
  double Done() const { return lines_.Done(); }

  /// The next line of the dataset; false at its end, which is no fault.
  bool NextLine();
  std::string_view Line() const { return lines_.Line(); }
  /// The same where it must be there.
  bool NeedLine();
  /// `count` whole numbers from the next lines, `width` columns each where no blanks divide them.
  bool Integers(std::size_t count, std::vector<std::int64_t>& to, std::size_t width = 10);
  bool Reals(std::size_t count, std::vector<double>& to, std::size_t width);
  /// Those of the line that is there; as many as it has.
  bool IntegersOfLine(std::vector<std::int64_t>& to, std::size_t width = 10);
  bool RealsOfLine(std::vector<double>& to, std::size_t width);
  /// Those of a line of both: so many whole ones of ten columns, then others of thirteen.
  bool NumbersOfLine(std::size_t integers, std::vector<std::int64_t>& whole,
                     std::vector<double>& to);
  /// All lines that are left, as they are.
  std::string Rest();

 private:
  template <class T>
  bool AddNumbers(std::string_view line, std::vector<T>& to, std::size_t width);
  template <class T>
  bool Numbers(std::size_t count, std::vector<T>& to, std::size_t width);

  TextLines lines_;
  std::string name_;
  std::string wrong_;
  std::string wrong_place_;
  bool is_in_ = false;
  bool is_over_ = true;
  bool is_cut_ = false;
};

}  // namespace qx::exchange
