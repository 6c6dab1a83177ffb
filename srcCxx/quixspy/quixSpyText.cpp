#include "quixspy/quixSpyText.h"

#include "meridian/utf8.h"

namespace {

void append_number(std::string& line, uint32_t number) {
    line += number > 0xff ? "\\u" : "\\x";
    QUIXSpy_appendHex(line, number, number > 0xff ? 4 : 2);
}

} // namespace

void QUIXSpy_appendText(std::string& line, std::string_view text, size_t width) {
    for (size_t at = 0; at < text.size() && at < width;) {
        const QUIXCharacter character = QUIXCharacter_first(text.substr(at));
        if (character.length > width - at)
            return;
        if (character.length == 0)
            append_number(line, static_cast<uint8_t>(text[at]));
        else if (character.is_control() || character.is_format())
            append_number(line, character.number);
        else
            line.append(text, at, character.length);
        at += character.length == 0 ? 1 : character.length;
    }
}

std::string QUIXSpy_text(const char* text) {
    std::string shown;
    if (text != nullptr)
        QUIXSpy_appendText(shown, text);
    return shown;
}
