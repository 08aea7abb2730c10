// A document's tree as XML text.
#pragma once

#include <libxml/tree.h>

#include <string>
#include <string_view>

namespace kro::tessel::os {

/// Appends a node of a document, and all that is in it, as UTF-8 without formatting, as libxml2 would save
/// it. (Its own writer goes through an encoder and an output buffer for each piece, which costs more than the
/// parsing did, and leaves a "<" in a namespace's URI as it is.)
void append_as_xml(std::string& out, const xmlNode* top);

std::string_view view_of(const xmlChar* text);  ///< empty for null

}  // namespace kro::tessel::os
