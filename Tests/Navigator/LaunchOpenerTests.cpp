#include <gtest/gtest.h>

#include "LibraryTestSupport.h"
#include "Model/LaunchOpener.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

// A shoot of three photos; the scanner needs only their names.
QString shoot(const Sandbox& sandbox, const QString& name)
{
    const QString folder = sandbox.mkdir(name);
    for (const char* photo : {"DSC_0001.JPG", "DSC_0002.JPG", "DSC_0003.JPG"})
        sandbox.write(name + QLatin1Char('/') + QString::fromLatin1(photo), "no es un JPEG");
    return folder;
}

} // namespace

TEST(LaunchOpener, FolderOpenedBeforePreparationEndsCancelsThePhotoSelection)
{
    Sandbox sandbox;
    const QString boda = shoot(sandbox, QStringLiteral("Boda"));
    const QString viaje = shoot(sandbox, QStringLiteral("Viaje"));
    Harness harness;
    LaunchOpener opener(*harness.model);
    opener.open({LaunchTarget{boda, Paths::join(boda, QStringLiteral("DSC_0003.JPG"))}});
    harness.model->open(viaje);
    ASSERT_TRUE(eventually([&] { return !harness.model->isPreparing(); }));
    harness.model->open(boda);
    ASSERT_TRUE(eventually([&] { return !harness.model->isPreparing() && harness.model->selectedID(); }));
    EXPECT_EQ(harness.model->selectedID(), Paths::join(boda, QStringLiteral("DSC_0001.JPG")));
}
