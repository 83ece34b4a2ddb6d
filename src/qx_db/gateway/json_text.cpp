// JSON text, read and written. Numbers are read by std::from_chars and written by {fmt} in their
// shortest form: exact both ways, and faster than the JSON library's own exact modes.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/compile.h>
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>
#include <rapidjson/stream.h>

#include "qx_db/gateway/json.h"
#include "qx_db/platform/pages.h"

namespace qx::dbgateway {
namespace {

constexpr const char* kTooLarge = "a number is too large";

/// Whether a text holds one half of a surrogate pair, as an escape can name it but no UTF-8 text
/// can hold it: the three bytes that begin with ED A0 to ED BF.
bool HoldsSurrogate(std::string_view text) {
  for (std::size_t at = 0; (at = text.find('\xED', at)) != std::string_view::npos; ++at) {
    if (at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) >= 0xA0) return true;
  }
  return false;
}

/// Passes the reader's events on to the document under construction, numbers converted, depth
/// limited.
class Builder {
 public:
  explicit Builder(JsonDocument& out) : out_(out) {}

  const char* Fault() const { return fault_; }

  bool Null() { return out_.Null(); }
  bool Bool(bool value) { return out_.Bool(value); }
  bool String(const char* text, rapidjson::SizeType size, bool copy) {
    return Whole({text, size}) && out_.String(text, size, copy);
  }
  bool Key(const char* text, rapidjson::SizeType size, bool copy) {
    return Whole({text, size}) && out_.Key(text, size, copy);
  }
  bool StartObject() { return Deeper() && out_.StartObject(); }
  bool EndObject(rapidjson::SizeType count) { return --depth_, out_.EndObject(count); }
  bool StartArray() { return Deeper() && out_.StartArray(); }
  bool EndArray(rapidjson::SizeType count) { return --depth_, out_.EndArray(count); }

  bool RawNumber(const char* text, rapidjson::SizeType size, bool) {
    const char* end = text + size;
    std::int64_t whole = 0;
    const auto parsed = std::from_chars(text, end, whole);
    // Minus zero is a real; as an integer it would lose its sign.
    if (parsed.ptr == end && (whole != 0 || text[0] != '-')) {
      if (parsed.ec == std::errc()) return Integer(whole);
      std::uint64_t large = 0;
      if (std::from_chars(text, end, large).ec == std::errc()) return out_.Uint64(large);
    }
    double value = 0;
    const auto result = std::from_chars(text, end, value);
    if (result.ec == std::errc::result_out_of_range) {
      // Too large is an error; too small is zero, as everywhere in floating point.
      if (!Underflows(std::string_view(text, size))) return Fail(kTooLarge);
      value = text[0] == '-' ? -0.0 : 0.0;
    }
    return out_.Double(value);
  }

  // Numbers arrive as text; these are never called.
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(std::int64_t) { return false; }
  bool Uint64(std::uint64_t) { return false; }
  bool Double(double) { return false; }

 private:
  bool Fail(const char* fault) {
    fault_ = fault;
    return false;
  }
  bool Whole(std::string_view text) {
    return !HoldsSurrogate(text) || Fail("half of a surrogate pair stands alone");
  }
  bool Deeper() {
    return ++depth_ <= DataBase::kMaxDepth || Fail("the nesting is deeper than 512 levels");
  }
  bool Integer(std::int64_t value) {
    const bool narrow = value >= INT32_MIN && value <= INT32_MAX;
    return narrow ? out_.Int(static_cast<int>(value)) : out_.Int64(value);
  }
  /// Of a number that no double can hold: whether it is too small rather than too large. The
  /// decimal exponent of its first significant digit tells.
  static bool Underflows(std::string_view text) {
    const auto e = text.find_first_of("eE");
    const std::string_view mantissa = text.substr(0, e);
    const auto digit = mantissa.find_first_of("123456789");
    if (digit == std::string_view::npos) return true;
    const auto point = std::min(mantissa.find('.'), mantissa.size());
    const auto position = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(digit);
    if (e == std::string_view::npos) return position < 0;
    const std::string_view exponent = text.substr(e + 1);
    const bool negative = exponent.starts_with('-');
    std::int64_t value = 0;
    const char* first = exponent.data() + (negative || exponent.starts_with('+') ? 1 : 0);
    const bool fits =
        std::from_chars(first, exponent.data() + exponent.size(), value).ec == std::errc();
    if (!fits) return negative;
    return (negative ? -value : value) + position < 0;
  }

  JsonDocument& out_;
  int depth_ = 0;
  const char* fault_ = nullptr;
};

/// "line 3, column 14" of a byte offset.
std::string PlaceOf(std::string_view text, std::size_t offset) {
  offset = std::min(offset, text.size());
  const std::string_view before = text.substr(0, offset);
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const auto start = before.rfind('\n');
  const auto column = start == std::string_view::npos ? offset + 1 : offset - start;
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

/// Where a character of UTF-8 begins that the end of the text cuts off; npos if none does.
std::size_t CutCharacter(std::string_view text) {
  for (std::size_t back = 1; back <= std::min<std::size_t>(3, text.size()); ++back) {
    const auto lead = static_cast<unsigned char>(text[text.size() - back]);
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
    if (length > back) return text.size() - back;
  }
  return std::string_view::npos;
}

/// Feeds a reader's events into a document, as Document::Populate wants it. The text is parsed in
/// place: the document's strings, and each number on its way to std::from_chars, are parts of it.
struct Generator {
  std::string& text;
  rapidjson::ParseResult result;
  const char* fault = nullptr;

  bool operator()(JsonDocument& out) {
    constexpr unsigned kFlags = rapidjson::kParseInsituFlag | rapidjson::kParseIterativeFlag |
                                rapidjson::kParseNumbersAsStringsFlag |
                                rapidjson::kParseValidateEncodingFlag;
    // The reader takes as many bytes as a character announces, even past the end of the text.
    if (const std::size_t cut = CutCharacter(text); cut != std::string_view::npos) {
      result.Set(rapidjson::kParseErrorStringInvalidEncoding, cut);
      return false;
    }
    rapidjson::InsituStringStream stream(text.data());
    rapidjson::GenericReader<Encoding, Encoding, BlockAllocator> reader;
    Builder builder(out);
    result = reader.Parse<kFlags>(stream, builder);
    fault = builder.Fault();
    // The reader takes a zero for the end of the text.
    if (!result.IsError() && stream.Tell() != text.size()) {
      result.Set(rapidjson::kParseErrorDocumentRootNotSingular, stream.Tell());
    }
    return !result.IsError();
  }
};

/// Collects short pieces of text and hands them on in long ones.
class Collector {
 public:
  explicit Collector(const TextSink& sink) : sink_(sink) {}
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;
  ~Collector() { Flush(); }

  /// Room for at least `size` <= kLongest characters; Take() says how many were written.
  char* Room(std::size_t size) {
    if (static_cast<std::size_t>(std::end(buffer_) - at_) < size) Flush();
    return at_;
  }
  void Take(char* end) { at_ = end; }
  void Put(char c) {
    *Room(1) = c;
    ++at_;
  }
  void Put(std::string_view text) {
    if (text.size() > kLongest) {
      Flush();
      sink_.take(text);
      flushed_ += text.size();
      return;
    }
    at_ = std::copy(text.begin(), text.end(), Room(text.size()));
  }
  std::size_t Size() const { return flushed_ + static_cast<std::size_t>(at_ - buffer_); }
  void Expect(std::size_t size) {
    if (sink_.expect) sink_.expect(size);
  }
  static constexpr std::size_t kLongest = 256;

 private:
  void Flush() {
    const auto size = static_cast<std::size_t>(at_ - buffer_);
    if (size) sink_.take({buffer_, size});
    flushed_ += size;
    at_ = buffer_;
  }
  const TextSink& sink_;
  std::size_t flushed_ = 0;
  char buffer_[std::size_t{32} << 10];
  char* at_ = buffer_;
};

class Writer {
 public:
  Writer(const TextSink& sink, bool indented) : out_(sink), indented_(indented) {}

  void Write(const Json& value) {
    switch (value.GetType()) {
      case rapidjson::kNullType:
        out_.Put("null");
        break;
      case rapidjson::kFalseType:
        out_.Put("false");
        break;
      case rapidjson::kTrueType:
        out_.Put("true");
        break;
      case rapidjson::kStringType:
        WriteString(TextOf(value));
        break;
      case rapidjson::kNumberType:
        WriteNumber(value);
        break;
      case rapidjson::kArrayType:
        WriteArray(value);
        break;
      case rapidjson::kObjectType:
        WriteObject(value);
        break;
    }
  }

 private:
  void WriteNumber(const Json& value) {
    constexpr std::size_t kRoom = 40;
    char* text = out_.Room(kRoom);
    if (value.IsInt64()) return out_.Take(std::to_chars(text, text + kRoom, value.GetInt64()).ptr);
    if (value.IsUint64())
      return out_.Take(std::to_chars(text, text + kRoom, value.GetUint64()).ptr);
    const double number = value.GetDouble();
    if (!std::isfinite(number)) return out_.Put("null");  // JSON has no such number
    char* end = fmt::format_to(text, FMT_COMPILE("{}"), number);
    // A whole number is written without point or exponent; a real stays one when it is read back.
    constexpr double kExponentFrom = 1e16;
    if (std::abs(number) < kExponentFrom &&
        number == static_cast<double>(static_cast<std::int64_t>(number))) {
      *end++ = '.';
      *end++ = '0';
    }
    out_.Take(end);
  }

  void WriteString(std::string_view text) {
    out_.Put('"');
    std::size_t done = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto c = static_cast<unsigned char>(text[i]);
      if (c >= 0x20 && c != '"' && c != '\\') continue;
      out_.Put(text.substr(done, i - done));
      done = i + 1;
      WriteEscaped(c);
    }
    out_.Put(text.substr(done));
    out_.Put('"');
  }

  void WriteEscaped(unsigned char c) {
    constexpr char kHex[] = "0123456789abcdef";
    switch (c) {
      case '"':
        return out_.Put("\\\"");
      case '\\':
        return out_.Put("\\\\");
      case '\n':
        return out_.Put("\\n");
      case '\r':
        return out_.Put("\\r");
      case '\t':
        return out_.Put("\\t");
      default:
        break;
    }
    out_.Put("\\u00");
    out_.Put(kHex[c >> 4]);
    out_.Put(kHex[c & 15]);
  }

  /// An array of plain values stays on one line, also when indented.
  void WriteArray(const Json& value) {
    out_.Put('[');
    bool first = true;
    for (const Json& element : value.GetArray()) {
      if (!first) out_.Put(indented_ ? ", " : ",");
      first = false;
      Write(element);
    }
    out_.Put(']');
  }

  void WriteObject(const Json& value) {
    out_.Put('{');
    ++depth_;
    const std::size_t begin = out_.Size();
    rapidjson::SizeType written = 0;
    for (const auto& member : MembersOf(value)) {
      if (written == kSample) ReserveFor(begin, value.MemberCount());
      if (written++ != 0) out_.Put(',');
      NewLine();
      WriteString(TextOf(member.name));
      out_.Put(indented_ ? ": " : ":");
      Write(member.value);
    }
    --depth_;
    if (written != 0) NewLine();
    out_.Put('}');
  }

  /// Says how long the text of a large object will be once its first members show how long they
  /// are: growing a text of a hundred megabytes by doubling costs as much as writing it.
  void ReserveFor(std::size_t begin, rapidjson::SizeType members) {
    const std::size_t a_member = (out_.Size() - begin) / kSample + 1;
    out_.Expect(begin + a_member * members + a_member * members / 16);
  }

  void NewLine() {
    if (!indented_) return;
    out_.Put('\n');
    for (int i = 0; i < depth_; ++i) out_.Put("  ");
  }

  static constexpr rapidjson::SizeType kSample = 1000;

  Collector out_;
  bool indented_;
  int depth_ = 0;
};

}  // namespace

Outcome ParseJson(std::string text, const std::string& source, ParsedJson& out) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) text.replace(0, kByteOrderMark.size(), 3, ' ');
  ParsedJson parsed(std::move(text));
  Generator generator{*parsed.text, {}};
  parsed.document.Populate(generator);
  if (generator.result.IsError()) {
    const bool too_large = generator.result.Code() == rapidjson::kParseErrorNumberTooBig;
    const char* fault = too_large ? kTooLarge : generator.fault;
    std::string what =
        fault ? fault
              : std::string("is not JSON: ") + rapidjson::GetParseError_En(generator.result.Code());
    if (what.ends_with('.')) what.pop_back();
    return Failure{source, PlaceOf(*parsed.text, generator.result.Offset()), what,
                   "correct the text there"};
  }
  out = std::move(parsed);
  return {};
}

void WriteJson(const Json& value, bool indented, const TextSink& sink) {
  Writer(sink, indented).Write(value);
}

}  // namespace qx::dbgateway
