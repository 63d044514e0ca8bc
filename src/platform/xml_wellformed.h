// Whether a document is well-formed XML 1.0, as the standard defines it.
//
// The data-file reader builds on a fast parser that is lenient by design: it takes a character
// reference to U+0000 or to a surrogate, bytes that are not valid in the declared encoding, or a second
// root element, and hands on what it made of them. A data file is checked here first, with the
// strict parser of the XML standard, so that a damaged file is refused instead of loaded with altered
// values.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorbex::platform {

// nullopt when `document` is well-formed; otherwise the first problem, with its line and column
// ("line 3, column 7: xmlParseCharRef: invalid xmlChar value 0"). No DTD or entity is loaded from
// anywhere.
std::optional<std::string> XmlWellFormednessProblem(std::string_view document);

}  // namespace quorbex::platform
