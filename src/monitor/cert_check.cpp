#include "monitor/cert_check.h"

#include <QStringDecoder>
#include <QStringList>
#include <algorithm>

#include "platform/background.h"
#include "platform/file_system.h"
#include "platform/sandbox.h"

namespace varnel {

namespace {

const QString supportDir = QStringLiteral("/Library/Application Support/Varnel");
// A CA certificate in PEM is a few kilobytes; a larger file is not one.
constexpr qsizetype kMaxPem = qsizetype{1024} * 1024;

// Code-point order of the composed forms, so that a name typed on another
// system (decomposed accents) sorts where people expect it. UTF-16 order would
// misplace characters beyond the basic plane.
void sortByCodePoint(QStringList& names) {
    std::vector<std::pair<QList<uint>, QString>> keyed;
    keyed.reserve(size_t(names.size()));
    for (const QString& name : names)
        keyed.emplace_back(name.normalized(QString::NormalizationForm_C).toUcs4(), name);
    std::stable_sort(keyed.begin(), keyed.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    names.clear();
    for (auto& [key, name] : keyed) names.append(std::move(name));
}

bool isDeployedCertificate(const QString& name) {
    if (!name.endsWith(QStringLiteral(".pem"))) return false;
    if (name == QStringLiteral("ca-bundle.pem")) return false;
    const auto bytes = fs::readFile(supportDir + u'/' + name, kMaxPem);
    if (!bytes) return false;
    QStringDecoder decoder(QStringConverter::Utf8);
    const QString text = decoder.decode(*bytes);
    if (decoder.hasError()) return false;
    // A key beside a certificate means the file is not a CA as deployed.
    return text.contains(QStringLiteral("BEGIN CERTIFICATE")) &&
           !text.contains(QStringLiteral("PRIVATE KEY"));
}

}  // namespace

CertStatus certStatus() {
    ToolSession session;
    CertCheck check(session, 0);
    allAtOnce(check.jobs());
    return check.result();
}

CertCheck::CertCheck(ToolSession& session, int firstPart)
    : session_(session), firstPart_(firstPart) {
    auto names = fs::list(supportDir);
    if (!names) {
        early_ = {Health::stopped, QStringLiteral("Not installed")};
        return;
    }
    sortByCodePoint(*names);
    for (const QString& name : *names)
        if (isDeployedCertificate(name)) deployed_.append(name);
    if (deployed_.isEmpty()) early_ = {Health::stopped, QStringLiteral("No CA certs deployed")};
    trusted_.assign(size_t(deployed_.size()), 0);
}

std::vector<std::function<void()>> CertCheck::jobs() {
    // One job: the certificates are verified one after another, in name order,
    // never two at once; the check as a whole runs beside the service probes.
    return {[this] {
        for (qsizetype i = 0; i < deployed_.size(); ++i) {
            Tools tools = session_.part(firstPart_ + int(i));
            const QString path = sandbox::hostPath(supportDir + u'/' + deployed_[i]);
            const CommandResult verified =
                tools.run(QStringLiteral("/usr/bin/security"),
                          {QStringLiteral("verify-cert"), QStringLiteral("-c"), path,
                           QStringLiteral("-p"), QStringLiteral("ssl")},
                          8);
            trusted_[size_t(i)] = verified.code == 0;
        }
    }};
}

CertStatus CertCheck::result() const {
    if (early_) return *early_;
    int trusted = 0;
    QStringList untrusted;
    for (qsizetype i = 0; i < deployed_.size(); ++i) {
        if (trusted_[size_t(i)] != 0)
            ++trusted;
        else
            untrusted.append(deployed_[i]);
    }
    const int total = int(deployed_.size());
    CertStatus status{Health::attention, {}, trusted, total};
    if (trusted == total) {
        status.health = Health::running;
        status.detail = QStringLiteral("Trusted — %1 CA cert(s)").arg(trusted);
    } else if (trusted == 0) {
        status.detail = QStringLiteral("Deployed, NOT trusted (%1)").arg(total);
    } else {
        status.detail = QStringLiteral("%1/%2 trusted — check %3")
                            .arg(trusted)
                            .arg(total)
                            .arg(untrusted.join(QStringLiteral(", ")));
    }
    return status;
}

}  // namespace varnel
