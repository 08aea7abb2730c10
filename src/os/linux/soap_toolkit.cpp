// The toolkit of our own, for a system that has none.
#include "os/soap_toolkit.h"

#include "os/linux/soap_connector.h"
#include "os/linux/soap_reader.h"
#include "os/linux/soap_serializer.h"
#include "os/system_services.h"

namespace kro::tessel::os {
namespace {

class own_toolkit final : public soap_toolkit {
public:
    void initialize_thread() noexcept override {}
    void uninitialize_thread() noexcept override {}
    std::unique_ptr<soap_connector> make_connector() override { return std::make_unique<http_connector>(); }
    std::unique_ptr<soap_serializer> make_serializer() override {
        return std::make_unique<message_serializer>();
    }
    std::unique_ptr<soap_reader> make_reader() override { return std::make_unique<document_reader>(); }
};

}  // namespace

soap_toolkit& system_soap_toolkit() {
    static own_toolkit s_toolkit;
    return s_toolkit;
}

}  // namespace kro::tessel::os
