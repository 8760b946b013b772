#pragma once

namespace zav {

/// The parts of the library that log. The event repository logs under `ZAVLogComponentModel`.
enum ZAVLogComponent : unsigned {
    ZAVLogComponentUndefined = 0,
    ZAVLogComponentInitialization = 1,
    ZAVLogComponentCertification = 2,
    ZAVLogComponentAuthentication = 3,
    ZAVLogComponentTransport = 4,
    ZAVLogComponentTransportPush = 5,
    ZAVLogComponentPlatformPush = 6,
    ZAVLogComponentModel = 7,
    ZAVLogComponentSQLite = 8,
    ZAVLogComponentSynchronization = 9,
    ZAVLogComponentInboundReconciliation = 10,
    ZAVLogComponentOutboundReconciliation = 11,
    ZAVLogComponentMessagingPublicAPI = 12,
    ZAVLogComponentRichContent = 13,
    ZAVLogComponentApplicationState = 14,
    ZAVLogComponentCount = 15,  ///< the number of components
};

}  // namespace zav
