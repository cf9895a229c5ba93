#include "platform/sandbox.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

using namespace varnel;

namespace {

// Whether rootProblem() says `said` of `root` (nothing when `said` is empty) to
// a user without privileges: as root every folder reads, so root asks in a child
// that gives them up.
bool says(const QString& root, const char* said) {
    qputenv("VARNEL_ROOT", QFile::encodeName(root));
    const auto answer = [said] {
        const auto problem = sandbox::rootProblem();
        return *said == '\0' ? !problem : problem && problem->contains(QLatin1String(said));
    };
    if (::geteuid() != 0) return answer();
    const pid_t child = ::fork();
    if (child == 0) ::_exit(::setgid(65534) == 0 && ::setuid(65534) == 0 && answer() ? 0 : 1);
    int status = 1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

TEST(SandboxRoot, RefusesAValueThatIsNotAReadableDirectory) {
    const QByteArray saved = qgetenv("VARNEL_ROOT");
    QTemporaryDir dir;
    const QDir base(dir.path());
    const auto open =
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther | QFile::ExeOther;
    ASSERT_TRUE(base.mkdir("suite") && base.mkdir("locked"));
    QFile::setPermissions(dir.path(), open);
    QFile::setPermissions(base.filePath("suite"), open);
    QFile::setPermissions(base.filePath("locked"), QFileDevice::Permissions());
    QFile(base.filePath("file")).open(QIODevice::WriteOnly);
    QFile::link(base.filePath("a"), base.filePath("b"));
    QFile::link(base.filePath("b"), base.filePath("a"));

    const std::pair<QString, const char*> cases[] = {
        {"", ""},
        {base.filePath("suite"), ""},
        {"/no/such/place", "does not exist"},
        {base.filePath("file"), "is not a directory"},
        {base.filePath("a"), "is a loop of symbolic links"},
        {base.filePath("locked"), "cannot be read"},
    };
    for (const auto& [root, said] : cases) EXPECT_TRUE(says(root, said)) << root.toStdString();
    qputenv("VARNEL_ROOT", saved);
}

TEST(SandboxRoot, WithoutARootPathsAreTheirOwn) {
    ASSERT_TRUE(sandbox::root().isEmpty());
    EXPECT_EQ(sandbox::hostPath(QStringLiteral("/usr/bin/pgrep")),
              QStringLiteral("/usr/bin/pgrep"));
    EXPECT_EQ(sandbox::suitePath(QStringLiteral("/var/log/x")), QStringLiteral("/var/log/x"));
}
