#include "platform/sandbox.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QTemporaryFile>

using namespace varnel;

TEST(SandboxRoot, RefusesAValueThatIsNotAnExistingDirectory) {
    const QByteArray saved = qgetenv("VARNEL_ROOT");
    QTemporaryDir dir;
    QTemporaryFile file;
    ASSERT_TRUE(file.open());

    qunsetenv("VARNEL_ROOT");
    EXPECT_FALSE(sandbox::rootProblem());
    qputenv("VARNEL_ROOT", "");
    EXPECT_FALSE(sandbox::rootProblem());
    qputenv("VARNEL_ROOT", dir.path().toUtf8());
    EXPECT_FALSE(sandbox::rootProblem());
    qputenv("VARNEL_ROOT", "/no/such/place");
    EXPECT_TRUE(sandbox::rootProblem()->contains(QStringLiteral("does not exist")));
    qputenv("VARNEL_ROOT", file.fileName().toUtf8());
    EXPECT_TRUE(sandbox::rootProblem()->contains(QStringLiteral("not a directory")));

    qputenv("VARNEL_ROOT", saved);
}

TEST(SandboxRoot, WithoutARootPathsAreTheirOwn) {
    ASSERT_TRUE(sandbox::root().isEmpty());
    EXPECT_EQ(sandbox::hostPath(QStringLiteral("/usr/bin/pgrep")),
              QStringLiteral("/usr/bin/pgrep"));
    EXPECT_EQ(sandbox::suitePath(QStringLiteral("/var/log/x")), QStringLiteral("/var/log/x"));
}
