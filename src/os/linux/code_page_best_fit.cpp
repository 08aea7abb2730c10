#include "code_page_best_fit.h"

#include "tessel/base/types.h"

#include <unicode/unorm2.h>

namespace kro::tessel::os {
namespace {

// Pages with a table of their own below.
enum page_bit : unsigned {
    k_central = 0x01,   // 1250
    k_cyrillic = 0x02,  // 1251
    k_western = 0x04,   // 1252
    k_greek = 0x08,     // 1253
    k_turkish = 0x10,   // 1254
    k_japanese = 0x20,  // 932
    k_other = 0x40,     // single-byte pages whose best fit isn't published; they get the rules only
};
constexpr unsigned k_latin = k_central | k_western | k_turkish;
constexpr unsigned k_dos_like = k_central | k_cyrillic | k_greek | k_turkish;
constexpr unsigned k_windows = k_latin | k_cyrillic | k_greek;
constexpr unsigned k_boxes = k_cyrillic | k_western;

// What no rule gives, by the best-fit tables that the Unicode Consortium publishes for the Windows code
// pages (MAPPINGS/VENDORS/MICSFT/WindowsBestFit). Kept as they stand, oddities included.
struct look_alikes {
    unsigned pages;
    std::uint16_t bytes;
    const wchar* units;
};
constexpr look_alikes k_look_alikes[] = {
    // Letters with strokes and hooks, and letters of other scripts that look like Latin ones.
    {k_windows | k_other, 'b', TESSEL_W("\u0180")},
    {k_western, 0xD0, TESSEL_W("\u0110\u0189")},
    {k_windows | k_other, 'D', TESSEL_W("\u0110")},
    {k_windows | k_other, 'd', TESSEL_W("\u0111")},
    {k_windows | k_other, 'G', TESSEL_W("\u01E4")},
    {k_windows | k_other, 'g', TESSEL_W("\u01E5")},
    {k_windows | k_other, 'H', TESSEL_W("\u0126")},
    {k_windows | k_other, 'h', TESSEL_W("\u0127")},
    {k_windows | k_other, 'I', TESSEL_W("\u0197")},
    {k_windows | k_other, 'L', TESSEL_W("\u0141")},
    {k_windows | k_other, 'l', TESSEL_W("\u0142\u019A")},
    {k_windows | k_other, 'O', TESSEL_W("\u00D8\u019F")},
    {k_windows | k_other, 'o', TESSEL_W("\u00F8")},
    {k_windows | k_other, 'T', TESSEL_W("\u0166\u01AE")},
    {k_windows | k_other, 't', TESSEL_W("\u0167\u01AB")},
    {k_central, 0xD0, TESSEL_W("\u0189")},
    {k_turkish, 'D', TESSEL_W("\u0189")},
    {k_central | k_western, 'i', TESSEL_W("\u0131")},
    {k_western | k_greek | k_turkish, 0x83, TESSEL_W("\u0191")},
    {k_central, 'F', TESSEL_W("\u0191")},
    {k_central, 'f', TESSEL_W("\u0192")},
    {k_central, 'A', TESSEL_W("\u00C6")},
    {k_central, 'a', TESSEL_W("\u00E6")},
    {k_central, 'O', TESSEL_W("\u0152")},
    {k_central, 'o', TESSEL_W("\u0153")},
    {k_latin, 'z', TESSEL_W("\u01B6")},
    {k_latin, 'g', TESSEL_W("\u0261")},
    {k_latin, 'h', TESSEL_W("\u04BB")},
    {k_latin, 0xDF, TESSEL_W("\u03B2")},
    {k_latin, 0xB5, TESSEL_W("\u03BC")},
    {k_western, 'G', TESSEL_W("\u0393")},
    {k_western, 'T', TESSEL_W("\u0398")},
    {k_western, 'S', TESSEL_W("\u03A3")},
    {k_western, 'F', TESSEL_W("\u03A6")},
    {k_western, 'O', TESSEL_W("\u03A9")},
    {k_western, 'a', TESSEL_W("\u03B1")},
    {k_western, 'd', TESSEL_W("\u03B4")},
    {k_western, 'e', TESSEL_W("\u03B5")},
    {k_western, 'p', TESSEL_W("\u03C0")},
    {k_western, 's', TESSEL_W("\u03C3")},
    {k_western, 't', TESSEL_W("\u03C4")},
    {k_western, 'f', TESSEL_W("\u03C6")},
    {k_latin, 'E', TESSEL_W("\u2107")},
    {k_latin, 'P', TESSEL_W("\u2118")},
    {k_latin, 'e', TESSEL_W("\u212E")},
    {k_latin, 0xC5, TESSEL_W("\u212B")},

    // Symbols of Latin-1.
    {k_central, '!', TESSEL_W("\u00A1")},
    {k_central, 'c', TESSEL_W("\u00A2")},
    {k_central, 'L', TESSEL_W("\u00A3")},
    {k_central, 'Y', TESSEL_W("\u00A5")},
    {k_central, 'a', TESSEL_W("\u00AA")},
    {k_central, 0x97, TESSEL_W("\u00AF\u30FC")},
    {k_turkish, 0x97, TESSEL_W("\u30FC")},
    {k_central, '1', TESSEL_W("\u00B9\u00BC\u00BD")},
    {k_central, '2', TESSEL_W("\u00B2")},
    {k_central, '3', TESSEL_W("\u00B3\u00BE")},
    {k_central, 'o', TESSEL_W("\u00BA")},
    {k_central, '?', TESSEL_W("\u00BF")},
    {k_greek, '/', TESSEL_W("\u00B4")},

    // Modifiers and accents: the spacing ones.
    {k_latin, '`', TESSEL_W("\u02CB\u0300\u2035")},
    {k_latin, 0xB4, TESSEL_W("\u02CA\u0301")},
    {k_greek, 0xB4, TESSEL_W("\u030D")},
    {k_latin, '^', TESSEL_W("\u02C4\u0302\u2303")},
    {k_central, '^', TESSEL_W("\u02C6")},
    {k_turkish, '^', TESSEL_W("\u02C7\u02D8")},
    {k_central, '~', TESSEL_W("\u02DC\u0303")},
    {k_western, '~', TESSEL_W("\u0303")},
    {k_turkish, 0x98, TESSEL_W("\u0303")},
    {k_latin, 0xAF, TESSEL_W("\u02C9\u0304\u0305")},
    {k_central, 0xA2, TESSEL_W("\u0306")},
    {k_turkish, 0x88, TESSEL_W("\u0306\u030C")},
    {k_central, 0xFF, TESSEL_W("\u0307")},
    {k_turkish, 0xB7, TESSEL_W("\u0307")},
    {k_latin, 0xA8, TESSEL_W("\u0308")},
    {k_turkish, 0xA8, TESSEL_W("\u02DD\u030E\u2033")},
    {k_central | k_western, '"', TESSEL_W("\u030E")},
    {k_latin, 0xB0, TESSEL_W("\u02DA")},
    {k_central | k_western, 0xB0, TESSEL_W("\u030A")},
    {k_turkish, 0xA7, TESSEL_W("\u030A")},
    {k_central, 0xA1, TESSEL_W("\u030C")},
    {k_latin, 0xB8, TESSEL_W("\u0327")},
    {k_turkish, 0xB8, TESSEL_W("\u02DB")},
    {k_latin, '_', TESSEL_W("\u02CD\u0331\u0332")},

    // Punctuation.
    {k_latin, ' ', TESSEL_W("\u2000\u2001\u2002\u2003\u2004\u2005\u2006\u3000")},
    {k_latin, '!', TESSEL_W("\u01C3")},
    {k_dos_like, '!', TESSEL_W("\u203C")},
    {k_latin, '"', TESSEL_W("\u02BA")},
    {k_turkish, '"', TESSEL_W("\u301D\u301E")},
    {k_latin, '%', TESSEL_W("\u066A")},
    {k_latin, '\'', TESSEL_W("\u02B9\u02BC\u02C8\u2032")},
    {k_turkish, '\'', TESSEL_W("\u02D9")},
    {k_latin, '-', TESSEL_W("\u2010\u2011\u2212")},
    {k_latin, '/', TESSEL_W("\u2044\u2215")},
    {k_latin, ':', TESSEL_W("\u0589\u2236")},
    {k_central | k_western | k_greek, ';', TESSEL_W("\u037E")},
    {k_latin, '<', TESSEL_W("\u2329\u3008")},
    {k_latin, '>', TESSEL_W("\u232A\u3009")},
    {k_latin, '[', TESSEL_W("\u301A")},
    {k_central | k_western, ']', TESSEL_W("\u301B")},
    {k_turkish, '=', TESSEL_W("\u301B")},
    {k_latin, '\\', TESSEL_W("\u2216")},
    {k_latin, '|', TESSEL_W("\u01C0\u2223\u2758")},
    {k_latin, '~', TESSEL_W("\u223C")},
    {k_central | k_turkish, 0x84, TESSEL_W("\u301F")},
    {k_central | k_turkish, 0x91, TESSEL_W("\u02BB\u275B")},
    {k_central | k_turkish, 0x92, TESSEL_W("\u275C")},
    {k_central | k_turkish, 0x93, TESSEL_W("\u275D")},
    {k_central | k_turkish, 0x94, TESSEL_W("\u275E")},
    {k_central, 0x93, TESSEL_W("\u301D")},
    {k_central, 0x94, TESSEL_W("\u2033\u301E")},
    {k_central | k_turkish, 0x95, TESSEL_W("\u2024")},
    {k_western, 0xB7, TESSEL_W("\u2024")},
    {k_latin, 0xAB, TESSEL_W("\u226A\u300A")},
    {k_latin, 0xB7, TESSEL_W("\u22C5\u30FB")},
    {k_latin, 0xBB, TESSEL_W("\u226B\u300B")},

    // Digits, currencies and mathematics.
    {k_central | k_western, '0', TESSEL_W("\u2080")},
    {k_central | k_western, '1', TESSEL_W("\u2081")},
    {k_central | k_western, '2', TESSEL_W("\u2082")},
    {k_central | k_western, '3', TESSEL_W("\u2083")},
    {k_turkish, 0xB0, TESSEL_W("\u2080")},
    {k_turkish, '0', TESSEL_W("\u2081")},
    {k_turkish, 0xB2, TESSEL_W("\u2082")},
    {k_turkish, 0xB3, TESSEL_W("\u2083")},
    {k_latin, '4', TESSEL_W("\u2074\u2084")},
    {k_latin, '5', TESSEL_W("\u2075\u2085")},
    {k_latin, '6', TESSEL_W("\u2076\u2086")},
    {k_latin, '7', TESSEL_W("\u2077\u2087")},
    {k_latin, '8', TESSEL_W("\u2078\u2088")},
    {k_latin, '9', TESSEL_W("\u2089")},
    {k_latin, 0xB0, TESSEL_W("\u2070\u2218")},
    {k_western, 0xA2, TESSEL_W("\u20A1")},
    {k_latin, 0xA3, TESSEL_W("\u20A4")},
    {k_western, 'P', TESSEL_W("\u20A7")},
    {k_western, '8', TESSEL_W("\u221E")},
    {k_western, '=', TESSEL_W("\u2017\u2261\u2264\u2265")},
    {k_western, 'n', TESSEL_W("\u207F\u2229")},
    {k_western, '(', TESSEL_W("\u2320")},
    {k_western, ')', TESSEL_W("\u2321")},
    {k_western, 0x98, TESSEL_W("\u2248")},
    {k_western, 0xAC, TESSEL_W("\u2310")},
    {k_western, 0xB7, TESSEL_W("\u2219")},
    {k_central | k_cyrillic | k_turkish, 0x95, TESSEL_W("\u2219")},
    {k_western | k_cyrillic, 'v', TESSEL_W("\u221A")},
    {k_dos_like, 'L', TESSEL_W("\u221F")},
    {k_latin, '*', TESSEL_W("\u2217")},
    {k_latin, 0xB1, TESSEL_W("\u2213")},
    {k_latin, 0xD8, TESSEL_W("\u2205")},

    // Arrows.
    {k_central | k_turkish, 0x8B, TESSEL_W("\u2190")},
    {k_cyrillic | k_greek, '<', TESSEL_W("\u2190")},
    {k_dos_like, '^', TESSEL_W("\u2191")},
    {k_central | k_turkish, 0x9B, TESSEL_W("\u2192")},
    {k_cyrillic | k_greek, '>', TESSEL_W("\u2192")},
    {k_central, 0xA1, TESSEL_W("\u2193")},
    {k_cyrillic | k_greek | k_turkish, 'v', TESSEL_W("\u2193")},
    {k_dos_like, '-', TESSEL_W("\u2194")},
    {k_central | k_turkish, '|', TESSEL_W("\u2195\u21A8")},
    {k_cyrillic | k_greek, 0xA6, TESSEL_W("\u2195\u21A8")},

    // Box drawing, blocks and shapes.
    {k_windows, '+', TESSEL_W("\u251C\u253C\u256C")},
    {k_dos_like, '+', TESSEL_W("\u2524\u2534")},
    {k_boxes, '+', TESSEL_W("\u256A\u256B")},
    {k_western, '+',
     TESSEL_W(
         "\u250C\u2510\u2514\u2518\u2552\u2553\u2554\u2555\u2556\u2557\u2558\u2559\u255A\u255B\u255C\u255D")},
    {k_dos_like, '-', TESSEL_W("\u250C\u2518\u255D\u2580\u2584\u2588\u2591\u2592\u2593\u25AC")},
    {k_central | k_turkish, '-', TESSEL_W("\u2502")},
    {k_central | k_greek | k_turkish, '-', TESSEL_W("\u2554")},
    {k_boxes | k_greek, '-', TESSEL_W("\u2500")},
    {k_cyrillic, '-', TESSEL_W("\u2552\u255B\u255C")},
    {k_western, '-', TESSEL_W("\u252C\u2534\u2550\u2564\u2565\u2566\u2567\u2568\u2569")},
    {k_dos_like, '=', TESSEL_W("\u2550")},
    {k_dos_like, 'L', TESSEL_W("\u2514\u255A")},
    {k_cyrillic, 'L', TESSEL_W("\u2558\u2559")},
    {k_dos_like, 'T', TESSEL_W("\u252C\u2566")},
    {k_cyrillic, 'T', TESSEL_W("\u2564\u2565")},
    {k_western, '_', TESSEL_W("\u2584")},
    {k_western, 0xAF, TESSEL_W("\u2580")},
    {k_windows, 0xA6, TESSEL_W("\u2302\u2551\u2560\u2563\u25A0")},
    {k_central | k_turkish, 0xA6, TESSEL_W("\u2500")},
    {k_boxes | k_greek, 0xA6, TESSEL_W("\u2502")},
    {k_boxes, 0xA6, TESSEL_W("\u255E\u255F\u2561\u2562\u258C\u2590")},
    {k_dos_like, 0xA6, TESSEL_W("\u2569\u2660\u2663\u2665\u2666")},
    {k_cyrillic, 0xA6, TESSEL_W("\u2567\u2568")},
    {k_western, 0xA6, TESSEL_W("\u2524\u2588\u2591\u2592\u2593")},
    {k_dos_like, 0xAC, TESSEL_W("\u2510\u2557")},
    {k_cyrillic, 0xAC, TESSEL_W("\u2555\u2556")},
    {k_cyrillic, 0xE3, TESSEL_W("\u2553\u2554")},
    {k_dos_like, '^', TESSEL_W("\u25B2")},
    {k_dos_like, '>', TESSEL_W("\u25BA\u2642")},
    {k_dos_like, '<', TESSEL_W("\u25C4")},
    {k_dos_like, 0xA1, TESSEL_W("\u25BC")},
    {k_dos_like, '0', TESSEL_W("\u25CB\u25D9\u263C")},
    {k_dos_like, 0x95, TESSEL_W("\u25D8")},
    {k_central, 0xA2, TESSEL_W("\u263A\u263B")},
    {k_cyrillic | k_greek | k_turkish, 'O', TESSEL_W("\u263A\u263B")},
    {k_western, 0xA4, TESSEL_W("\u263C")},
    {k_dos_like, '+', TESSEL_W("\u2640")},
    {k_dos_like, 'd', TESSEL_W("\u266A\u266B")},

    // Japanese: Latin-1, and one letter.
    {k_japanese, '!', TESSEL_W("\u00A1")},
    {k_japanese, 0x8191, TESSEL_W("\u00A2")},
    {k_japanese, 0x8192, TESSEL_W("\u00A3")},
    {k_japanese, '\\', TESSEL_W("\u00A5")},
    {k_japanese, '|', TESSEL_W("\u00A6")},
    {k_japanese, 'c', TESSEL_W("\u00A9")},
    {k_japanese, 'a', TESSEL_W("\u00AA\u00E6")},
    {k_japanese, 0x81E1, TESSEL_W("\u00AB")},
    {k_japanese, 0x81CA, TESSEL_W("\u00AC")},
    {k_japanese, '-', TESSEL_W("\u00AD")},
    {k_japanese, 'R', TESSEL_W("\u00AE")},
    {k_japanese, 0x8150, TESSEL_W("\u00AF")},
    {k_japanese, '2', TESSEL_W("\u00B2")},
    {k_japanese, '3', TESSEL_W("\u00B3")},
    {k_japanese, 0x83CA, TESSEL_W("\u00B5")},
    {k_japanese, 0x8145, TESSEL_W("\u00B7")},
    {k_japanese, 0x8143, TESSEL_W("\u00B8")},
    {k_japanese, '1', TESSEL_W("\u00B9")},
    {k_japanese, 'o', TESSEL_W("\u00BA\u00F8")},
    {k_japanese, 0x81E2, TESSEL_W("\u00BB")},
    {k_japanese, '?', TESSEL_W("\u00BF")},
    {k_japanese, 'A', TESSEL_W("\u00C6")},
    {k_japanese, 'D', TESSEL_W("\u00D0")},
    {k_japanese, 'O', TESSEL_W("\u00D8")},
    {k_japanese, 'T', TESSEL_W("\u00DE")},
    {k_japanese, 's', TESSEL_W("\u00DF")},
    {k_japanese, 'd', TESSEL_W("\u00F0")},
    {k_japanese, 't', TESSEL_W("\u00FE")},
    {k_japanese, 0x8394, TESSEL_W("\u3094")},
};

unsigned bit_of(std::uint32_t page) {
    switch (page) {
        case 932:
            return k_japanese;
        case 1250:
            return k_central;
        case 1251:
            return k_cyrillic;
        case 1252:
            return k_western;
        case 1253:
            return k_greek;
        case 1254:
            return k_turkish;
        case 874:
        case 936:
        case 949:
        case 950:
        case 1255:
        case 1256:
        case 1257:
        case 1258:
            return 0;  // the converter's own table has them
        default:
            return k_other;
    }
}

constexpr bool is_ascii_letter(UChar unit) {
    return (unit >= 'A' && unit <= 'Z') || (unit >= 'a' && unit <= 'z');
}

class best_fit {
public:
    best_fit(unsigned page, std::vector<std::uint16_t>& narrow) : m_page(page), m_narrow(narrow) {}

    void add() {
        add_look_alikes();
        add_full_width();
        if (m_page == k_japanese) {
            add_letters(0xC0, 0xFF);
        } else if (m_page != 0) {
            add_letters(0xC0, 0x1DF);
            add_letters(0x1E4, 0x1F0);
        }
        if ((m_page & (k_latin | k_other)) != 0) {
            add_styled_letters(0x2102, 0x2134);
        }
    }

private:
    void put(std::uint32_t unit, std::uint32_t bytes) {
        if (m_narrow[unit] == 0) {
            m_narrow[unit] = static_cast<std::uint16_t>(bytes);
        }
    }

    void add_look_alikes() {
        for (const look_alikes& row : k_look_alikes) {
            for (const wchar* unit = row.units; (row.pages & m_page) != 0 && *unit != 0; ++unit) {
                put(*unit, row.bytes);
            }
        }
    }

    // These have the order of ASCII.
    void add_full_width() {
        for (std::uint32_t ascii = '!'; ascii <= '~'; ++ascii) {
            put(0xFF01U + (ascii - '!'), ascii);
        }
    }

    // Letters with accents: the letter alone.
    void add_letters(std::uint32_t first, std::uint32_t last) {
        UErrorCode error = U_ZERO_ERROR;
        const UNormalizer2* const canonical = unorm2_getNFDInstance(&error);
        for (std::uint32_t unit = first; U_SUCCESS(error) && unit <= last; ++unit) {
            UChar parts[8] = {};
            UErrorCode failure = U_ZERO_ERROR;
            const std::int32_t count =
                unorm2_getDecomposition(canonical, static_cast<UChar32>(unit), parts, 8, &failure);
            if (count > 1 && is_ascii_letter(parts[0])) {
                put(unit, parts[0]);
            }
        }
    }

    // Script, black-letter and double-struck letters of mathematics.
    void add_styled_letters(std::uint32_t first, std::uint32_t last) {
        UErrorCode error = U_ZERO_ERROR;
        const UNormalizer2* const compatible = unorm2_getNFKDInstance(&error);
        for (std::uint32_t unit = first; U_SUCCESS(error) && unit <= last; ++unit) {
            UChar parts[8] = {};
            UErrorCode failure = U_ZERO_ERROR;
            const std::int32_t count =
                unorm2_getDecomposition(compatible, static_cast<UChar32>(unit), parts, 8, &failure);
            if (count == 1 && is_ascii_letter(parts[0])) {
                put(unit, parts[0]);
            }
        }
    }

    unsigned m_page;
    std::vector<std::uint16_t>& m_narrow;
};

}  // namespace

void add_best_fit(std::uint32_t page, std::vector<std::uint16_t>& narrow) {
    best_fit(bit_of(page), narrow).add();
}

}  // namespace kro::tessel::os
