#include "os/url.h"

#include <algorithm>
#include <iterator>

namespace kro::tessel::os {
namespace {

struct error_text {
    std::uint32_t error;
    std::basic_string_view<wchar> text;
};

#define TESSEL_LINE(text) TESSEL_W(text "\r\n")

// In the order of the numbers. A text and its line end have at most 258 units: that is what callers of the
// published formatting call have room for.
constexpr error_text k_texts[] = {
    {12001, TESSEL_LINE("No more handles could be created at this time.")},
    {12002, TESSEL_LINE("The request has timed out.")},
    {12003, TESSEL_LINE("The server returned an error of its own. Its text explains it.")},
    {12004, TESSEL_LINE("An internal error has occurred.")},
    {12005, TESSEL_LINE("The URL is invalid.")},
    {12006, TESSEL_LINE("The URL scheme could not be recognized or is not supported.")},
    {12007, TESSEL_LINE("The server name could not be resolved.")},
    {12008, TESSEL_LINE("The requested protocol could not be found.")},
    {12009, TESSEL_LINE("The option is not known, or does not apply to this kind of handle.")},
    {12010, TESSEL_LINE("The length given for the option does not fit the option's type.")},
    {12011, TESSEL_LINE("The option can be read but not set.")},
    {12012, TESSEL_LINE("The network service is being shut down.")},
    {12013, TESSEL_LINE("The user name was not accepted.")},
    {12014, TESSEL_LINE("The password was not accepted.")},
    {12015, TESSEL_LINE("Logging in to the server failed.")},
    {12016, TESSEL_LINE("The requested operation is invalid.")},
    {12017,
     TESSEL_LINE("The operation was canceled, usually because the handle on which the request was operating "
                 "was closed before the operation completed.")},
    {12018, TESSEL_LINE("The handle is of the wrong type for this operation.")},
    {12019, TESSEL_LINE("The handle is not in the state that this operation needs.")},
    {12020, TESSEL_LINE("The request cannot be made through a proxy.")},
    {12024, TESSEL_LINE("An asynchronous operation needs a context value, and none was given.")},
    {12026, TESSEL_LINE("Another operation on this handle is still pending.")},
    {12028, TESSEL_LINE("The requested item could not be located.")},
    {12029, TESSEL_LINE("The attempt to connect to the server failed.")},
    {12030, TESSEL_LINE("The connection with the server has been terminated.")},
    {12031, TESSEL_LINE("The connection was reset by the server.")},
    {12032, TESSEL_LINE("The request has to be sent again.")},
    {12033, TESSEL_LINE("The request to the proxy was invalid.")},
    {12034, TESSEL_LINE("The operation cannot go on without asking the user.")},
    {12036, TESSEL_LINE("A handle for this exists already.")},
    {12037,
     TESSEL_LINE(
         "SSL certificate date that was received from the server is bad. The certificate is expired.")},
    {12038, TESSEL_LINE("SSL certificate common name (host name field) is incorrect.")},
    {12039, TESSEL_LINE("A redirection leads from a connection that is not secure to a secure one.")},
    {12040, TESSEL_LINE("A redirection leads from a secure connection to one that is not secure.")},
    {12041,
     TESSEL_LINE("The content is only partly secure. Some of it came over a connection that is not secure.")},
    {12042, TESSEL_LINE("The data would be posted over a connection that is no longer secure.")},
    {12043, TESSEL_LINE("The data would be posted over a connection that is not secure.")},
    {12044, TESSEL_LINE("The server asks for a certificate of the client.")},
    {12045, TESSEL_LINE("The authority that issued the server's certificate is not known or not trusted.")},
    {12046, TESSEL_LINE("Authentication of the client has not been set up on this computer.")},
    {12047, TESSEL_LINE("The thread for asynchronous operations could not be started.")},
    {12048, TESSEL_LINE("The scheme of the URL changed during a redirection.")},
    {12049, TESSEL_LINE("A dialog for this request is already waiting for the user.")},
    {12050, TESSEL_LINE("The dialog has to be shown again.")},
    {12052,
     TESSEL_LINE("A redirection would send the submitted data from a secure connection to one that is not "
                 "secure.")},
    {12055, TESSEL_LINE("The server's certificate has several errors.")},
    {12057, TESSEL_LINE("It could not be checked whether the server's certificate has been revoked.")},
    {12150, TESSEL_LINE("The requested header could not be found.")},
    {12151, TESSEL_LINE("The server did not return any headers.")},
    {12152, TESSEL_LINE("The server's response could not be understood.")},
    {12153, TESSEL_LINE("The header is invalid.")},
    {12154, TESSEL_LINE("The query for information about the request is invalid.")},
    {12155, TESSEL_LINE("The header exists already and was not added.")},
    {12156,
     TESSEL_LINE("The redirection failed, because its target is not acceptable or there were too many.")},
    {12157, TESSEL_LINE("A secure channel to the server could not be set up.")},
    {12159, TESSEL_LINE("The TCP/IP network protocol is not installed or not working.")},
    {12160, TESSEL_LINE("The request was not redirected.")},
    {12163, TESSEL_LINE("The connection to the Internet has been lost.")},
    {12164, TESSEL_LINE("The server cannot be reached.")},
    {12165, TESSEL_LINE("The proxy server cannot be reached.")},
    {12166, TESSEL_LINE("The script for the automatic proxy configuration has an error.")},
    {12167, TESSEL_LINE("The script for the automatic proxy configuration could not be downloaded.")},
    {12168, TESSEL_LINE("The redirection has to be confirmed by the user.")},
    {12169, TESSEL_LINE("The server's certificate is invalid.")},
    {12170, TESSEL_LINE("The server's certificate has been revoked.")},
    {12171, TESSEL_LINE("A security check failed.")},
    {12172, TESSEL_LINE("The network service has not been initialized.")},
    {12174, TESSEL_LINE("Logging in failed. The server's answer explains why and should be shown.")},
    {12175, TESSEL_LINE("A security error occurred, or the content could not be decoded.")},
};

#undef TESSEL_LINE

}  // namespace

std::basic_string_view<wchar> inet_error_text(std::uint32_t error) {
    const auto* const found =
        std::lower_bound(std::begin(k_texts), std::end(k_texts), error,
                         [](const error_text& row, std::uint32_t number) { return row.error < number; });
    const bool known = found != std::end(k_texts) && found->error == error;
    return known ? found->text : std::basic_string_view<wchar>();
}

}  // namespace kro::tessel::os
