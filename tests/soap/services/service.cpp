// Answers getClientConfiguration on gSOAP. Prints its port once it listens.
#include <netinet/in.h>
#include <soapH.h>
#include <sys/socket.h>

#include <config.nsmap>
#include <cstdio>
#include <cstring>
#include <string>

int ns__getClientConfiguration(struct soap* soap, char* screenName, char* password, char* clientName,
                               char* clientVersion, struct ns__getClientConfigurationResponse& response) {
    if (password == nullptr || std::strcmp(password, "p<&>w") != 0) {
        return soap_receiver_fault(soap, "wrong password", nullptr);
    }
    const std::string client = std::string(clientName) + " " + clientVersion;
    const std::string texts[][2] = {
        {"screen", screenName}, {"client", client}, {"gr\u00FC\u00DFe", "<&> \u20AC"}};
    response.configuration.__size = 3;
    response.configuration.item = soap_new_ns__pair(soap, 3);
    for (int i = 0; i < 3; ++i) {
        response.configuration.item[i].name = soap_strdup(soap, texts[i][0].c_str());
        response.configuration.item[i].value = soap_strdup(soap, texts[i][1].c_str());
    }
    return SOAP_OK;
}

int main() {
    struct soap* const soap = soap_new1(SOAP_C_UTFSTRING | SOAP_XML_INDENT);
    if (!soap_valid_socket(soap_bind(soap, "127.0.0.1", 0, 5))) {
        return 1;
    }
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ::getsockname(soap->master, reinterpret_cast<sockaddr*>(&address), &size);
    std::printf("http://127.0.0.1:%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    while (soap_valid_socket(soap_accept(soap))) {
        soap_serve(soap);
        soap_destroy(soap);
        soap_end(soap);
    }
    return 0;
}
