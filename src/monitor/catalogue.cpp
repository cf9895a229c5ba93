#include "monitor/catalogue.h"

#include "platform/paths.h"

namespace varnel {

namespace {

std::vector<ServiceSpec> buildCatalogue() {
    const QString agentOut = QStringLiteral("/Library/Logs/Varnel/agent.stdout.log");
    const QString supportLogs = Paths::supportLogDir + u'/';
    const QString updaterLogs = Paths::updaterLogDir + u'/';
    return {
        {QStringLiteral("agent"),
         QStringLiteral("Agent"),
         QStringLiteral("Core Varnel daemon (com.varnel.agent)"),
         Detector::launchDaemon(QStringLiteral("com.varnel.agent")),
         {{QStringLiteral("Agent output log"), agentOut},
          {QStringLiteral("Agent error log"),
           QStringLiteral("/Library/Logs/Varnel/agent.stderr.log")}},
         QStringLiteral("com.varnel.agent")},
        {QStringLiteral("proxy"),
         QStringLiteral("Proxy"),
         QStringLiteral("Transparent TLS proxy (varnel-proxy)"),
         Detector::process(QStringLiteral("varnel-proxy")),
         {{QStringLiteral("Proxy log"), Paths::logHintPrefix + "proxy.log"},
          {QStringLiteral("Agent output log"), agentOut}},
         std::nullopt},
        {QStringLiteral("sysext"),
         QStringLiteral("Network Extension"),
         QStringLiteral("ai.ostrel.agent.sentinel.extension"),
         Detector::systemExtension(QStringLiteral("ai.ostrel.agent.sentinel.extension")),
         {},
         std::nullopt},
        {QStringLiteral("monitor"),
         QStringLiteral("Monitor"),
         QStringLiteral("System monitor (varnel-monitor-v2)"),
         Detector::process(QStringLiteral("varnel-monitor-v2")),
         {},
         std::nullopt},
        {QStringLiteral("templates"),
         QStringLiteral("Template Engine"),
         QStringLiteral("template-engine"),
         Detector::process(QStringLiteral("template-engine")),
         {{QStringLiteral("Template engine log"), Paths::logHintPrefix + "templating-engine.log"}},
         std::nullopt},
        {QStringLiteral("ipc"),
         QStringLiteral("IPC Broker"),
         QStringLiteral("ipc-light-broker"),
         Detector::process(QStringLiteral("ipc-light-broker")),
         {},
         std::nullopt},
        {QStringLiteral("diagnostics"),
         QStringLiteral("Diagnostics"),
         QStringLiteral("varnel-diagnostics"),
         Detector::process(QStringLiteral("varnel-diagnostics")),
         {},
         std::nullopt},
        {QStringLiteral("updater"),
         QStringLiteral("Auto-Updater"),
         QStringLiteral("Scheduled update check (com.varnel.endpoint.updater)"),
         Detector::updater(Paths::updaterLabel),
         {{QStringLiteral("Updater output log"), updaterLogs + "varnel_endpoint.stdout.log"},
          {QStringLiteral("Updater error log"), updaterLogs + "varnel_endpoint.stderr.log"}},
         Paths::updaterLabel},
        {QStringLiteral("watcher"),
         QStringLiteral("Push Watcher"),
         QStringLiteral("Real-time discovery WebSocket watcher (com.varnel.endpoint.watcher)"),
         Detector::launchDaemon(QStringLiteral("com.varnel.endpoint.watcher")),
         {{QStringLiteral("Watch activity (agent log)"), supportLogs + "varnel-endpoint.log"},
          {QStringLiteral("WebSocket helper log"), supportLogs + "varnel_endpoint.watcher.log"},
          {QStringLiteral("Watcher output log"),
           supportLogs + "varnel_endpoint.watcher.stdout.log"},
          {QStringLiteral("Watcher error log"),
           supportLogs + "varnel_endpoint.watcher.stderr.log"}},
         QStringLiteral("com.varnel.endpoint.watcher")},
    };
}

}  // namespace

const std::vector<ServiceSpec> SERVICES = buildCatalogue();

}  // namespace varnel
