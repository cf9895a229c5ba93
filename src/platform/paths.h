#pragma once

#include <QString>

// The suite's fixed locations, as the suite itself names them. They are never
// opened directly: file access and tools go through sandbox::hostPath().
namespace varnel::Paths {

inline const QString appBundle = QStringLiteral("/Applications/VarnelProxy.app");
inline const QString agentBin =
    QStringLiteral("/Applications/VarnelProxy.app/Contents/MacOS/varnel");
inline const QString serviceLogDir = QStringLiteral("/Library/Logs/Varnel");
inline const QString updaterLogDir = QStringLiteral("/var/log/ostrel/varnel-endpoint");
inline const QString postinstallLog = QStringLiteral("/var/log/ostrel/varnel-postinstall.log");
inline const QString supportLogDir = QStringLiteral("/Library/Application Support/Varnel/logs");
inline const QString installedVer =
    QStringLiteral("/Library/Application Support/Varnel/.installed_version");
inline const QString discoveryState =
    QStringLiteral("/Library/Application Support/Varnel/.discovery-state.json");
inline const QString updaterLabel = QStringLiteral("com.varnel.endpoint.updater");
// Names a log by a fragment of its file name, resolved to the newest match when opened.
inline const QString logHintPrefix = QStringLiteral("hint:");
inline const QString selfBundle = QStringLiteral(
    "/Library/Application Support/Varnel/VarnelStatus.app/Contents/MacOS/VarnelStatus");

}  // namespace varnel::Paths
