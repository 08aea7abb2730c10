// The line on a terminal that shows how far the requests are.
#pragma once

#include "batch.h"

namespace command {

/// Repaints the line while it exists; a timer of this thread's loop drives it.
class progress_line {
public:
    explicit progress_line(const batch& requests);
    progress_line(const progress_line&) = delete;
    progress_line& operator=(const progress_line&) = delete;
    ~progress_line();

    void clear() const;  ///< before something else is written to the terminal

private:
    void paint(unsigned timer);

    const batch& m_requests;
    const bool m_shown;
};

}  // namespace command
