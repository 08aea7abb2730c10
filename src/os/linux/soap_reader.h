// Reads answers with libxml2.
#pragma once

#include "os/soap_toolkit.h"

#include <libxml/tree.h>

#include <cstddef>
#include <memory>

namespace kro::tessel::os {

/// Nothing is fetched, nothing expanded, and no blank text between elements is kept. Answers that aren't
/// well-formed, namespaces included, or that the screen refuses, fail with k_soap_failure.
class document_reader final : public soap_reader {
public:
    void load(soap_stream& answer, soap_text soap_action) override;
    wide_string document_xml() override;
    bool fault(wide_string& code, wide_string& text) override;
    std::unique_ptr<soap_nodes> rpc_result_nodes() override;

private:
    xmlNode* body_entry() const;

    std::shared_ptr<xmlDoc> m_document;
    std::size_t m_size = 0;  // of its bytes, about what its text takes
};

}  // namespace kro::tessel::os
