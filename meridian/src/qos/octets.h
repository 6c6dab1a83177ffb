#pragma once

#include <string>
#include <vector>

#include "meridian/base.h"

namespace meridian::qos {

/// Octets from text: base64 (RFC 4648, section 4; blanks between the characters do not count), or numbers
/// from 0 to 255, decimal or hexadecimal (0x), separated by commas; one number alone is one octet. Returns
/// what is wrong with the text, or an empty string.
std::string decode_octets(const std::string& text, std::vector<DDS_Octet>& octets);

} // namespace meridian::qos
