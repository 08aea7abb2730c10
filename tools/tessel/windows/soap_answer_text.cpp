#include "../soap_answer.h"
#include "../text.h"

#include <comdef.h>

namespace command {

std::string text_of_answer(const CLumSoapClient& client) {
    const _bstr_t answer = client.GetResponse();
    return to_utf8({static_cast<const wchar*>(answer), answer.length()});
}

}  // namespace command
