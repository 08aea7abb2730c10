// A download into a file, going on with what an earlier one has left.
#pragma once

#include "part_file.h"
#include "transfer.h"

#include <cstdint>
#include <optional>
#include <string>

namespace command {

class download {
public:
    /// request: its headers and `resumed` are completed here.
    download(const transfer_request& request, const std::string& file, bool starts_anew);

    void run();
    /// Whether the file is there.
    bool is_good() const;

    const transfer_request& request() const { return m_request; }
    const transfer_result& result() const { return m_result; }
    /// Bytes in the file, or in the part that was left.
    std::uint64_t bytes() const { return m_bytes; }
    /// Of them, those of earlier runs.
    std::uint64_t resumed() const { return m_request.resumed; }
    /// What went wrong with a complete answer or with a file; empty when nothing did.
    const std::string& trouble() const { return m_trouble; }

private:
    void try_once();
    void take_head(transfer& running, const kro::tessel::http::response_head& head);
    void go_on(transfer& running, const kro::tessel::http::response_head& head);
    void start_over(transfer& running);
    void stop_unless(bool written, transfer& running);
    void finish(transfer& running);

    const std::string m_headers;  // as on the command line
    transfer_request m_request;
    part_file m_part;
    transfer_result m_result;
    std::string m_trouble;
    std::uint64_t m_bytes = 0;
    std::optional<std::uint64_t> m_expected;  // bytes of the whole file, where the server says it
    bool m_writes = false;                    // the answer's body is the file's
    bool m_is_complete = false;               // nothing was left to be fetched
    bool m_has_to_start_over = false;
};

}  // namespace command
