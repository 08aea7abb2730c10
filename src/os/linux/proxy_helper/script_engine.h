// Runs scripts for proxies (PAC), by libproxy.
#pragma once

#include "os/linux/descriptor.h"

#include <proxy.h>

#include <memory>
#include <string>
#include <string_view>

namespace kro::tessel::os {

struct script_outcome {
    bool evaluated = false;
    std::string text;  ///< what the script returned, else why there is nothing
};

class script_engine {
public:
    script_engine();

    /// Whether scripts can be run on this machine: libproxy answers "direct" to everything, and nothing else,
    /// where the package with its script engine isn't installed.
    bool works();

    /// Takes the script that the next questions are put to. Its variables begin anew.
    /// Returns false when there is no memory for it.
    bool load(std::string_view script);

    /// May never return.
    script_outcome evaluate(const std::string& url);

private:
    struct free_factory {
        void operator()(pxProxyFactory* factory) const noexcept { px_proxy_factory_free(factory); }
    };

    std::unique_ptr<pxProxyFactory, free_factory> m_factory;
    descriptor m_script;  // the loaded one, as a file without a name
};

}  // namespace kro::tessel::os
