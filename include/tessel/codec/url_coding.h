// Percent-encoding of text for URLs and form bodies, one code unit at a time.
#pragma once

#include <tessel/base/string.h>

/// Writes text so that it can stand in a URL or a form body.
///
/// A to Z, a to z, 0 to 9 and the seven marks ' ( ) * - . _ stay as they are. Everything else becomes "%" and
/// the unit's number in upper-case hexadecimal digits, two at least. The servers that this is for expect it
/// so, and hosts rely on it:
///  - a blank becomes "%20", never "+";
///  - text isn't taken through UTF-8: a unit above 0xFF is written with its three or four digits, so U+4E2D
///    gives "%4E2D", and each half of a surrogate pair is escaped by itself. URLDecoder reads two digits
///    only, so such text doesn't come back; any other does.
///
/// Thread: any. Errors: those of the string, std::bad_alloc and std::length_error.
class TESSEL_API URLEncoder {
public:
    URLEncoder() = default;
    URLEncoder(const URLEncoder&) = default;
    URLEncoder& operator=(const URLEncoder&) = default;
    virtual ~URLEncoder();

    /// Encodes UTF-16 units.
    static kro::tessel::CTString Encode(const kro::tessel::CTString& s);
    /// Encodes bytes, each of 0x80 to 0xFF as its two digits.
    static kro::tessel::CTStringA EncodeA(const kro::tessel::CTStringA& s);

    /// The printable ASCII characters up to "z" that are escaped.
    static const kro::tessel::CTString csUnsafeString;  // NOLINT(readability-identifier-naming): its name
};

/// Reads what URLEncoder writes: "%" and two hexadecimal digits, of either case, become one unit (a byte in
/// the narrow form) of the value 0 to 255. Nothing else is changed: "+" stays, and bytes of UTF-8 aren't put
/// together.
///
/// Nothing is refused either. Of two characters behind a "%", one that is no hexadecimal digit counts as 0:
/// "%zz" gives the unit 0. A "%" with fewer than two characters behind it is dropped and what follows is
/// copied: "100%" gives "100", "%4" gives "4", and "%%" gives "%". Hosts rely on it.
///
/// Thread: any. Errors: those of the string, std::bad_alloc.
class TESSEL_API URLDecoder {
public:
    URLDecoder() = default;
    URLDecoder(const URLDecoder&) = default;
    URLDecoder& operator=(const URLDecoder&) = default;
    virtual ~URLDecoder();

    static kro::tessel::CTString Decode(const kro::tessel::CTString& s);
    static kro::tessel::CTStringA DecodeA(const kro::tessel::CTStringA& s);
};
