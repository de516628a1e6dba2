#pragma once

#include <cstddef>
#include <filesystem>
#include <limits>
#include <string>
#include <string_view>

// Text between the forms the library meets: wide text of the interface (wchar_t
// of any width), UTF-8 of files and terminals, UTF-16 units of the exchange
// between processes, the process's single-byte code page of header cards, and
// native file names. No function consults a locale; all are total and thread-safe
// and throw nothing but std::bad_alloc.
//
// Wide text is read as UTF-16 where a high and a low surrogate follow each other
// and as code points otherwise, so both widths of wchar_t take the same text.
// What is no Unicode scalar value - a lone surrogate, a value above 0x10FFFF - is
// replaced: by "?" in byte forms, by U+FFFD in UTF-16.
namespace korin::platform {

// Wide text as UTF-8.
std::string ToUtf8(std::wstring_view text);

// UTF-8 as wide text. Every byte that is not part of a well-formed sequence
// (overlong forms and encoded surrogates included) becomes U+FFFD.
std::wstring FromUtf8(std::string_view text);

// Wide text as UTF-16 units, at most `maxUnits` of them; a surrogate pair that
// would cross that limit is left out whole.
std::u16string ToUtf16(std::wstring_view text,
                       std::size_t maxUnits = std::numeric_limits<std::size_t>::max());

// UTF-16 units as wide text; a lone surrogate becomes U+FFFD.
std::wstring FromUtf16(std::u16string_view units);

// Wide text converted to the process's single-byte code page (UTF-8 on POSIX),
// cut to its first `bytes` bytes and converted back. A character that the cut
// would split is left out; characters that the code page lacks come back as its
// replacement ("?"). Cutting twice gives the same as cutting once. `bytes` <= 0
// gives an empty text.
std::wstring CutToColumns(std::wstring_view text, int bytes);

// A native file name as wide text and back, without loss: on POSIX a byte that
// is not part of well-formed UTF-8 becomes the lone surrogate U+DC00 + byte
// (U+DC80 to U+DCFF), and WideToPath turns that into the byte again.
std::wstring PathToWide(const std::filesystem::path& path);
std::filesystem::path WideToPath(std::wstring_view text);

// A file name as a command line or a text file gives it: as it stands on POSIX, in UTF-8 on
// Windows.
std::filesystem::path PathOf(std::string_view text);

// The name by which functions that take a narrow name, as those of the C library do, open
// an existing file: the path itself on POSIX; on Windows in the code page, for which the
// file's short name may have to stand in. Empty when there is none.
std::string NarrowName(const std::filesystem::path& file);

}  // namespace korin::platform
