#include "html_tags.h"

#include <array>

namespace kro::tessel::os {
namespace {

using trait_table = std::array<html_traits, GUMBO_TAG_LAST + 1>;

constexpr void add(trait_table& table, html_traits added, std::initializer_list<GumboTag> tags) {
    for (const GumboTag tag : tags) {
        table[tag] = static_cast<html_traits>(table[tag] | added);
    }
}

constexpr trait_table traits_of_tags() {
    trait_table table{};
    // Blocks as most are: each has all the traits of one.
    add(table, k_special | k_closes_p | k_written | k_block_end,
        {GUMBO_TAG_ADDRESS, GUMBO_TAG_ARTICLE,    GUMBO_TAG_ASIDE,  GUMBO_TAG_BLOCKQUOTE, GUMBO_TAG_CENTER,
         GUMBO_TAG_DETAILS, GUMBO_TAG_DIR,        GUMBO_TAG_DIV,    GUMBO_TAG_DL,         GUMBO_TAG_FIELDSET,
         GUMBO_TAG_FIGURE,  GUMBO_TAG_FIGCAPTION, GUMBO_TAG_FOOTER, GUMBO_TAG_HEADER,     GUMBO_TAG_HGROUP,
         GUMBO_TAG_MAIN,    GUMBO_TAG_MENU,       GUMBO_TAG_NAV,    GUMBO_TAG_OL,         GUMBO_TAG_SECTION,
         GUMBO_TAG_SUMMARY, GUMBO_TAG_UL,         GUMBO_TAG_PRE,    GUMBO_TAG_LISTING});
    add(table, k_special | k_closes_p | k_written,
        {GUMBO_TAG_P, GUMBO_TAG_FORM, GUMBO_TAG_H1, GUMBO_TAG_H2, GUMBO_TAG_H3, GUMBO_TAG_H4, GUMBO_TAG_H5,
         GUMBO_TAG_H6, GUMBO_TAG_HR, GUMBO_TAG_XMP, GUMBO_TAG_PLAINTEXT});
    add(table, k_special | k_written,
        {GUMBO_TAG_BR, GUMBO_TAG_LI, GUMBO_TAG_DD, GUMBO_TAG_DT, GUMBO_TAG_BUTTON, GUMBO_TAG_SELECT,
         GUMBO_TAG_TABLE, GUMBO_TAG_CAPTION, GUMBO_TAG_TBODY, GUMBO_TAG_THEAD, GUMBO_TAG_TFOOT, GUMBO_TAG_TR,
         GUMBO_TAG_TD, GUMBO_TAG_TH, GUMBO_TAG_OBJECT, GUMBO_TAG_APPLET, GUMBO_TAG_MARQUEE});
    add(table, k_written,
        {GUMBO_TAG_LEGEND, GUMBO_TAG_OPTION, GUMBO_TAG_OPTGROUP, GUMBO_TAG_VIDEO, GUMBO_TAG_AUDIO,
         GUMBO_TAG_CANVAS, GUMBO_TAG_PROGRESS, GUMBO_TAG_METER, GUMBO_TAG_DATALIST, GUMBO_TAG_RP});
    add(table, k_special, {GUMBO_TAG_NOSCRIPT, GUMBO_TAG_TEMPLATE});
    add(table, k_block_end, {GUMBO_TAG_BUTTON, GUMBO_TAG_OBJECT, GUMBO_TAG_APPLET, GUMBO_TAG_MARQUEE});
    add(table, k_scope | k_table_scope, {GUMBO_TAG_TABLE, GUMBO_TAG_TEMPLATE});
    add(table, k_scope,
        {GUMBO_TAG_CAPTION, GUMBO_TAG_TD, GUMBO_TAG_TH, GUMBO_TAG_OBJECT, GUMBO_TAG_APPLET, GUMBO_TAG_MARQUEE,
         GUMBO_TAG_SVG, GUMBO_TAG_FOREIGNOBJECT});
    add(table, k_button_scope, {GUMBO_TAG_BUTTON});
    add(table, k_list_scope, {GUMBO_TAG_OL, GUMBO_TAG_UL});
    add(table, k_implied_end,
        {GUMBO_TAG_DD, GUMBO_TAG_DT, GUMBO_TAG_LI, GUMBO_TAG_OPTGROUP, GUMBO_TAG_OPTION, GUMBO_TAG_P,
         GUMBO_TAG_RB, GUMBO_TAG_RP, GUMBO_TAG_RT, GUMBO_TAG_RTC});
    add(table, k_void,
        {GUMBO_TAG_AREA, GUMBO_TAG_BASE, GUMBO_TAG_BASEFONT, GUMBO_TAG_BGSOUND, GUMBO_TAG_BR, GUMBO_TAG_COL,
         GUMBO_TAG_EMBED, GUMBO_TAG_FRAME, GUMBO_TAG_HR, GUMBO_TAG_IMG, GUMBO_TAG_IMAGE, GUMBO_TAG_INPUT,
         GUMBO_TAG_KEYGEN, GUMBO_TAG_LINK, GUMBO_TAG_META, GUMBO_TAG_PARAM, GUMBO_TAG_SOURCE, GUMBO_TAG_TRACK,
         GUMBO_TAG_WBR});
    add(table, k_replaced,
        {GUMBO_TAG_EMBED, GUMBO_TAG_IMG, GUMBO_TAG_IMAGE, GUMBO_TAG_INPUT, GUMBO_TAG_KEYGEN, GUMBO_TAG_IFRAME,
         GUMBO_TAG_TEXTAREA});
    add(table, k_raw,
        {GUMBO_TAG_IFRAME, GUMBO_TAG_TEXTAREA, GUMBO_TAG_SCRIPT, GUMBO_TAG_STYLE, GUMBO_TAG_TITLE,
         GUMBO_TAG_NOEMBED, GUMBO_TAG_NOFRAMES, GUMBO_TAG_XMP, GUMBO_TAG_PLAINTEXT});
    add(table, k_ends_svg,
        {GUMBO_TAG_B,      GUMBO_TAG_BIG,    GUMBO_TAG_BLOCKQUOTE, GUMBO_TAG_BODY,  GUMBO_TAG_BR,
         GUMBO_TAG_CENTER, GUMBO_TAG_CODE,   GUMBO_TAG_DD,         GUMBO_TAG_DIV,   GUMBO_TAG_DL,
         GUMBO_TAG_DT,     GUMBO_TAG_EM,     GUMBO_TAG_EMBED,      GUMBO_TAG_H1,    GUMBO_TAG_H2,
         GUMBO_TAG_H3,     GUMBO_TAG_H4,     GUMBO_TAG_H5,         GUMBO_TAG_H6,    GUMBO_TAG_HEAD,
         GUMBO_TAG_HR,     GUMBO_TAG_I,      GUMBO_TAG_IMG,        GUMBO_TAG_LI,    GUMBO_TAG_LISTING,
         GUMBO_TAG_MENU,   GUMBO_TAG_META,   GUMBO_TAG_NOBR,       GUMBO_TAG_OL,    GUMBO_TAG_P,
         GUMBO_TAG_PRE,    GUMBO_TAG_RUBY,   GUMBO_TAG_S,          GUMBO_TAG_SMALL, GUMBO_TAG_SPAN,
         GUMBO_TAG_STRONG, GUMBO_TAG_STRIKE, GUMBO_TAG_SUB,        GUMBO_TAG_SUP,   GUMBO_TAG_TABLE,
         GUMBO_TAG_TT,     GUMBO_TAG_U,      GUMBO_TAG_UL,         GUMBO_TAG_VAR});
    return table;
}

constexpr trait_table k_traits = traits_of_tags();

}  // namespace

bool has_trait(GumboTag tag, html_traits wanted) {
    return (k_traits[tag] & wanted) != 0;
}

bool is_heading(GumboTag tag) {
    return tag >= GUMBO_TAG_H1 && tag <= GUMBO_TAG_H6;
}

bool is_table_context(GumboTag tag) {
    return is_one_of(tag, {GUMBO_TAG_TABLE, GUMBO_TAG_TBODY, GUMBO_TAG_THEAD, GUMBO_TAG_TFOOT, GUMBO_TAG_TR});
}

bool is_table_part(GumboTag tag) {
    return is_one_of(tag, {GUMBO_TAG_CAPTION, GUMBO_TAG_TBODY, GUMBO_TAG_THEAD, GUMBO_TAG_TFOOT, GUMBO_TAG_TR,
                           GUMBO_TAG_TD, GUMBO_TAG_TH});
}

bool is_formatting(GumboTag tag) {
    return is_one_of(tag, {GUMBO_TAG_A, GUMBO_TAG_B, GUMBO_TAG_BIG, GUMBO_TAG_CODE, GUMBO_TAG_EM,
                           GUMBO_TAG_FONT, GUMBO_TAG_I, GUMBO_TAG_NOBR, GUMBO_TAG_S, GUMBO_TAG_SMALL,
                           GUMBO_TAG_STRIKE, GUMBO_TAG_STRONG, GUMBO_TAG_TT, GUMBO_TAG_U});
}

const char* written_name(GumboTag tag) {
    if (tag == GUMBO_TAG_FORM || tag == GUMBO_TAG_TEMPLATE) {
        return "div";  // gumbo moves a form's last text behind it; a template's content is elsewhere
    }
    return has_trait(tag, k_written) ? gumbo_normalized_tagname(tag) : nullptr;
}

}  // namespace kro::tessel::os
