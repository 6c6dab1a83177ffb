#pragma once

// Checks on the text of a document before the parser sees it. The parser is lenient in what follows; a
// document that is not what it seems must be refused rather than half understood.

#include <cstddef>
#include <string>

namespace meridian::xml {

/// What is wrong with a text, and where. No reason: nothing.
struct TextProblem {
    size_t offset = 0;
    std::string reason;
};

/// Turns UTF-16 (by byte order mark or by the first character) into UTF-8 and drops byte order marks. False
/// for other encodings and for UTF-16 that is not valid.
bool to_utf8(std::string& source, TextProblem& problem);

/// Is this valid UTF-8 of characters that XML allows?
TextProblem check_characters(const std::string& source);

/// References to entities other than the five of XML, references to characters that XML does not allow, bare
/// "&", and document types that declare something.
TextProblem check_markup(const std::string& source);

} // namespace meridian::xml
