// The images compiled into the application: each one is there and draws something, at the sizes
// the toolbars and tables ask for.
#include <gtest/gtest.h>

#include <QImage>
#include <QPixmap>

#include "shell/IconSet.h"

namespace {

// Share of pixels that are not fully transparent.
double coverage(const QIcon& icon, int size) {
    const QImage image = icon.pixmap(size, size).toImage();
    if (image.isNull()) {
        return 0.0;
    }
    qsizetype drawn = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            drawn += qAlpha(image.pixel(x, y)) > 0 ? 1 : 0;
        }
    }
    return static_cast<double>(drawn) / static_cast<double>(image.width() * image.height());
}

TEST(IconSetTest, EveryImageDrawsAtSmallAndLargeSizes) {
    for (const QString& name :
         {IconSet::kEncrypt, IconSet::kEncryptGrey, IconSet::kDecrypt, IconSet::kDecryptGrey,
          IconSet::kApplication, IconSet::kAddFiles, IconSet::kExportProfile, IconSet::kSignOut,
          IconSet::kSearch, IconSet::kAddRecipient}) {
        const QIcon icon = IconSet::named(name);
        ASSERT_FALSE(icon.isNull()) << name.toStdString();
        for (const int size : {16, 32, 128}) {
            const double share = coverage(icon, size);
            // Something is drawn, with a transparent margin somewhere around it.
            EXPECT_GT(share, 0.08) << name.toStdString() << " at " << size;
            EXPECT_LT(share, 1.0) << name.toStdString() << " at " << size;
        }
    }
    EXPECT_TRUE(IconSet::named(QStringLiteral("no_such_image")).isNull());
    EXPECT_TRUE(IconSet::named(QString()).isNull());
}

}  // namespace
