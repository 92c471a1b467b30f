// More messages that can be stored: one with several fields of each kind, not all of them stored,
// and one with a required field.
#ifndef QV_TESTS_STORED_MESSAGES_H
#define QV_TESTS_STORED_MESSAGES_H

#include <string>
#include <tuple>

#include "KevraCommonMsg.pb.h"
#include "QvPlistConvert.h"

namespace qor::kevra {

template <>
struct StoredFields<ProxyData> {
    static constexpr auto kFields = std::make_tuple(
        StoredField{"protocol", [](const ProxyData& proxy) { return proxy.has_protocol(); },
                    [](const ProxyData& proxy) { return proxy.protocol(); },
                    [](ProxyData& proxy, int protocol) { proxy.set_protocol(protocol); }},
        StoredField{
            "server_addr", [](const ProxyData& proxy) { return proxy.has_server_addr(); },
            [](const ProxyData& proxy) -> const std::string& { return proxy.server_addr(); },
            [](ProxyData& proxy, const std::string& address) { proxy.set_server_addr(address); }},
        StoredField{"port", [](const ProxyData& proxy) { return proxy.has_port(); },
                    [](const ProxyData& proxy) { return proxy.port(); },
                    [](ProxyData& proxy, int port) { proxy.set_port(port); }},
        StoredField{"user_name", [](const ProxyData& proxy) { return proxy.has_user_name(); },
                    [](const ProxyData& proxy) -> const std::string& { return proxy.user_name(); },
                    [](ProxyData& proxy, const std::string& name) { proxy.set_user_name(name); }});
};

template <>
struct StoredFields<DebugOption> {
    static constexpr auto kFields = std::make_tuple(
        StoredField{"plugins", [](const DebugOption& option) { return option.has_plugins(); },
                    [](const DebugOption& option) { return option.plugins(); },
                    [](DebugOption& option, int plugins) { option.set_plugins(plugins); }},
        StoredField{"debug_level",
                    [](const DebugOption& option) { return option.has_debug_level(); },
                    [](const DebugOption& option) { return option.debug_level(); },
                    [](DebugOption& option, int level) { option.set_debug_level(level); }});
};

}  // namespace qor::kevra

#endif  // QV_TESTS_STORED_MESSAGES_H
