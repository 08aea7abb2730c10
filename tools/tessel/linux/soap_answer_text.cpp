#include "../soap_answer.h"
#include "../text.h"

namespace command {

std::string text_of_answer(const CLumSoapClient& client) {
    const _bstr_t answer = client.GetResponse();
    return to_utf8({answer, answer.length()});
}

}  // namespace command
