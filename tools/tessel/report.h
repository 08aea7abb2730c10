// What a person or a program sees of each result.
#pragma once

#include "batch.h"
#include "request_options.h"

#include <cstdint>
#include <set>
#include <string>

namespace command {

class report {
public:
    explicit report(const request_options& options);

    /// Writes one result: body, file or JSON; errors as "code: text (hint)" on standard error.
    void add(const request_result& result);

    int exit_code() const;

private:
    void write_json(const request_result& result, const std::string& file);
    void write_to_stdout(const request_result& result) const;
    std::string write_to_file(const request_result& result);
    std::string file_for(const std::string& url);
    std::string text_of(const request_result& result) const;
    void complain(const request_result& result, const std::string& what);

    const request_options& m_options;
    std::set<std::string> m_files;  // written so far
    bool m_failed = false;
    bool m_bad_status = false;
};

}  // namespace command
