// SOAP 1.1 calls over HTTP: any call, and the one that fetches a client's configuration.
#pragma once

#include <tessel/base/string.h>
#include <tessel/base/types.h>
#include <tessel/platform/bstr.h>

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

class CLumProxyInfo;

/// Where an element stands, seen from the one that was added before it. The first one always stands in the
/// method's element.
enum SOAP_ELEMENT_TYPE : std::uint32_t {
    SOAP_ELEMENT_SIBLING = 0,  ///< beside it
    SOAP_ELEMENT_CHILD = 1,    ///< inside it
    SOAP_ELEMENT_UNCLE = 2,    ///< beside its parent
};

/// A client of SOAP services. docs/soap.md says what goes over the wire.
///
///     CLumSoapClient client;
///     client.AddElement(SOAP_ELEMENT_SIBLING, TESSEL_W("city"), TESSEL_W("Tartu"));
///     if (client.Call(TESSEL_W("http://host/weather"), TESSEL_W("forecast"), TESSEL_W("urn:weather")) == 1)
///     {
///         show(client.GetResponse());
///     }
///
/// Every call blocks its thread until the answer is there. On Windows the calls initialise COM on the thread,
/// as a single-threaded apartment, and leave it so: `Call` and `TryConnect` once more with each call (kept:
/// hosts count on the thread staying one).
/// Errors: results are 1 and 0; why a call failed is traced, with an HRESULT (docs/soap.md lists them).
/// Thread: one at a time for each object; distinct objects may be used from different threads at once.
class TESSEL_API CLumSoapClient {
public:
    /// Name and value, in the order received.
    using client_cfg = std::vector<std::pair<kro::tessel::CTString, kro::tessel::CTString>>;

    CLumSoapClient();
    /// Copies share the response.
    CLumSoapClient(const CLumSoapClient&);
    CLumSoapClient(CLumSoapClient&&) noexcept;
    CLumSoapClient& operator=(const CLumSoapClient&);
    CLumSoapClient& operator=(CLumSoapClient&&) noexcept;
    virtual ~CLumSoapClient();

    /// Drops the elements, and nothing else.
    void Initialize();
    /// Does nothing; kept for hosts that call it.
    void Release();

    /// Adds an element to the body of the next calls. Nothing is checked here: a name that XML doesn't allow,
    /// or a value with characters that it can't carry (controls, unpaired surrogates), fails the call.
    /// name:  without a prefix; the element stands in the call's namespace.
    /// value: the text in front of its children; none is written when it is empty.
    void AddElement(SOAP_ELEMENT_TYPE type, const kro::tessel::CTString& name,
                    const kro::tessel::CTString& value);

    /// Calls `method` with the elements added, without a proxy and for at most 30 seconds.
    /// nameSpace: that of the method and its elements, none when empty. With the method's name appended it is
    ///            also the SOAP action.
    /// Returns:   1 when an XML document came back, a fault's included, which GetResponse then holds; else 0,
    ///            and the response stays what it was.
    int Call(const kro::tessel::CTString& endPointUrl, const kro::tessel::CTString& method,
             const kro::tessel::CTString& nameSpace);

    /// The document that the last successful `Call` got, as text; without a text before that. Blank texts
    /// between elements are left out.
    _bstr_t GetResponse() const;

    /// TryConnect, up to three times without a pause, until it succeeds. The screen name is sent in lower
    /// case (A to Z only) and without blanks, and without every other character whose low eight bits are
    /// those of the blank (kept: the server knows the names in that form). Returns as TryConnect.
    int CallService(kro::tessel::CTString& endPointUrl, kro::tessel::CTString& soapAction,
                    kro::tessel::CTString& screenName, kro::tessel::CTString& password,
                    kro::tessel::CTString& clientName, kro::tessel::CTString& clientVersion);

    /// Asks the service for the configuration of a client, by each route of the URL's server until one
    /// succeeds; directly when there is none. The service's namespace is set_soap_service_namespace's.
    /// Returns: 1 when the answer was read, see getClientCfgMap; else 0, and at once when one of the texts
    ///          other than the SOAP action and the password is empty.
    int TryConnect(kro::tessel::CTString& endPointUrl, kro::tessel::CTString& soapAction,
                   kro::tessel::CTString& screenName, kro::tessel::CTString& password,
                   kro::tessel::CTString& clientName, kro::tessel::CTString& clientVersion);

    /// The pairs of the last configuration. After an exchange that failed: those read until then.
    client_cfg getClientCfgMap() const;

protected:
    /// One exchange by one route, for at most 60 seconds; an empty server is the direct route. The account of
    /// the route goes to the trace in clear. Returns as TryConnect.
    // NOLINTNEXTLINE(bugprone-reserved-identifier): the name that hosts use
    int _TryConnect(kro::tessel::CTString& endPointUrl, kro::tessel::CTString& soapAction,
                    kro::tessel::CTString& screenName, kro::tessel::CTString& password,
                    kro::tessel::CTString& clientName, kro::tessel::CTString& clientVersion,
                    CLumProxyInfo& proxy);

private:
    struct element {
        kro::tessel::CTString name;
        kro::tessel::CTString value;
        SOAP_ELEMENT_TYPE type = SOAP_ELEMENT_SIBLING;
    };

    client_cfg m_clientCfg;
    std::vector<element> m_elements;
    std::shared_ptr<const _bstr_t> m_response;  // null before the first; the type is incomplete on Windows
};
