// The text of an HTML document, for places that take plain text.
#pragma once

#include <tessel/base/string.h>

namespace kro::tessel {

/// The text that a reader of an HTML document or fragment sees: the inner text of its body, as the system's
/// HTML engine gives it, with CR LF for each line end. Nothing is fetched and no script runs.
///
/// Tags are gone, character references replaced, runs of white space are one blank (but in pre and its like),
/// blocks and br begin lines, a blank line stands around each p, a tab between the cells of a row. What isn't
/// shown gives no text: head, script, style, comments, what `hidden`, or "display: none" or "visibility:
/// hidden" in a style attribute, hides, and what replaced elements (img, input, textarea, iframe, object)
/// hold. Other styles count for nothing.
///
/// On Linux the rules are those of the HTML standard
/// (https://html.spec.whatwg.org/#the-innertext-idl-attribute) for a browser without style sheets; on Windows
/// those of the system's own engine, which differ in details. Elements nested deeper than 512 become
/// siblings, as in browsers. Markup of MathML reads as text in a line. In a document that holds control
/// characters other than white space, the private characters U+10FF01 to U+10FF1F and U+10FF7F to U+10FF9F
/// may become the controls that they end like (U+10FF05 becomes U+0005); all others stay.
///
/// Returns: the text; the empty string when there is none or anything fails.
/// Thread:  any; on Windows one that has initialised COM.
TESSEL_API CTString _gethtml_puretext(const CTString& html);

}  // namespace kro::tessel
