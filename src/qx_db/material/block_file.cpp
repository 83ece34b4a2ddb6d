#include "qx_db/material/block_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <filesystem>
#include <fmt/args.h>
#include <fmt/printf.h>
#include <fmt/xchar.h>
#include <fstream>

#include "qx_db/material/text_lines.h"
#include "qx_db/platform/file.h"

namespace qx {

static_assert(std::endian::native == std::endian::little,
              "numbers and texts of these files are copied as they lie in memory");

bool FitsBlock(const CString& text) {
  return text.View().size() < kBlockUnits && text.View().find(u'\0') == std::u16string_view::npos;
}

bool TextOfBlock(const char* block, CString& text) {
  std::size_t length = 0;
  while (length < kBlockUnits && (block[2 * length] != 0 || block[2 * length + 1] != 0)) ++length;
  if (length == kBlockUnits) return false;
  std::u16string units(length, u'\0');
  std::memcpy(units.data(), block, 2 * length);
  text = CString(std::move(units));
  return true;
}

BlockReader::BlockReader(std::unique_ptr<std::istream> stream, std::uint64_t size, std::string file)
    : stream_(std::move(stream)), left_(size), file_(std::move(file)) {}

Result<BlockReader> BlockReader::Open(const std::string& path) {
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file.Error();
  std::error_code error;
  const auto size = std::filesystem::file_size(PathFromUtf8(path), error);
  auto stream = std::make_unique<std::ifstream>(PathFromUtf8(path), std::ios::binary);
  if (error || !*stream) return Failure{path, "", "cannot be opened", "check permissions"};
  return BlockReader(std::move(stream), size, path);
}

Outcome BlockReader::Read(void* to, std::size_t count, const std::string& place) {
  if (count > left_) {
    return Failure{file_, place, "the file ends here", "use a complete copy of the file"};
  }
  if (!stream_->read(static_cast<char*>(to), static_cast<std::streamsize>(count))) {
    return Failure{file_, place, "cannot be read", "check the disk"};
  }
  left_ -= count;
  return {};
}

Outcome BlockReader::CheckCount(std::uint64_t count, std::uint64_t size,
                                const std::string& place) const {
  if (count <= left_ / size) return {};
  return Failure{file_, place,
                 "counts " + std::to_string(count) + " entries, but the file has room for only " +
                     std::to_string(left_ / size),
                 "use an undamaged copy of the file"};
}

Outcome BlockReader::ReadMagic(std::u16string_view magic) {
  std::u16string found(magic.size(), u'\0');
  Outcome read = Read(found.data(), 2 * found.size(), "start");
  if (read && found == magic) return {};
  return Failure{file_, "start", "does not begin with " + Utf8(magic),
                 "check that this is a library of the right kind"};
}

Outcome BlockReader::ReadText(CString& text, const std::string& place) {
  char block[kBlockBytes];
  if (Outcome read = Read(block, sizeof(block), place); !read) return read;
  if (TextOfBlock(block, text)) return {};
  return Failure{file_, place, "has a text without a terminator",
                 "use an undamaged copy of the file"};
}

Outcome BlockReader::CheckEnd(const MaterialLint& lint) const {
  if (left_ == 0) return {};
  const std::string bytes = left_ == 1 ? "1 byte follows" : std::to_string(left_) + " bytes follow";
  return lint.Doubt(
      {file_, "end", bytes + " the last material", "use an undamaged copy of the file"});
}

namespace {

// The formatting library counts a width in units of its text: in characters, where those are wide.
std::wstring Wide(std::u16string_view text) {
  std::wstring wide;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool is_pair = sizeof(wchar_t) > 2 && (text[i] & 0xFC00) == 0xD800 &&
                         i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
    if (is_pair) {
      const std::uint32_t high = text[i] & 0x3FFu, low = text[i + 1] & 0x3FFu;
      wide += static_cast<wchar_t>(0x10000u + (high << 10) + low);
      ++i;
    } else {
      wide += static_cast<wchar_t>(text[i]);
    }
  }
  return wide;
}

std::u16string Narrow(std::wstring_view wide) {
  std::u16string text;
  for (const wchar_t c : wide) {
    const auto code = static_cast<std::uint32_t>(c);
    if (code >= 0x10000) {
      text += static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10));
      text += static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
    } else {
      text += static_cast<char16_t>(code);
    }
  }
  return text;
}

}  // namespace

FormatValue::FormatValue(const char16_t* text) : value_(std::u16string(text ? text : u"(null)")) {}

std::u16string FormatText(const char16_t* format, std::initializer_list<FormatValue> values) {
  fmt::dynamic_format_arg_store<fmt::wprintf_context> arguments;
  for (const FormatValue& value : values) {
    if (const auto* text = std::get_if<std::u16string>(&value.Value())) {
      arguments.push_back(Wide(*text));
    } else {
      std::visit(
          [&](const auto& held) {
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(held)>>) {
              arguments.push_back(held);
            }
          },
          value.Value());
    }
  }
  const std::wstring wide_format = Wide(format);
  return Narrow(fmt::vsprintf(fmt::wstring_view(wide_format),
                              fmt::basic_format_args<fmt::wprintf_context>(arguments)));
}

unsigned WriteText(CStdioFile& file, std::u16string_view text) {
  file.Write(text.data(), 2 * text.size());
  return static_cast<unsigned>(2 * text.size());
}

int WriteTextBlock(CStdioFile& file, std::u16string_view text) {
  if (text.size() >= kBlockUnits) return 0;
  std::array<char16_t, kBlockUnits> block{};
  std::copy(text.begin(), text.end(), block.begin());
  file.Write(block.data(), kBlockBytes);
  return 1;
}

}  // namespace qx
