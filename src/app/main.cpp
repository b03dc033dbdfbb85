#include <QApplication>
#include <QLabel>
#include <QMainWindow>
#include <QVBoxLayout>

#include "storage/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"NIVO-GX"_s);
    QApplication::setOrganizationName(u"NIVO-GX"_s);

    const bool signedIn = NivoGXUtil::generateRequiredDirectory();

    // Until the sign-in and main windows exist, a plain window shows the launch decision.
    QMainWindow window;
    window.setWindowTitle(u"NIVO-GX"_s);
    auto* label = new QLabel(signedIn ? QObject::tr("Signed in as %1").arg(NivoGXUtil::getNivoUsername())
                                      : QObject::tr("Not signed in"));
    label->setAlignment(Qt::AlignCenter);
    label->setMargin(40);
    window.setCentralWidget(label);
    window.resize(480, 240);
    window.show();
    return QApplication::exec();
}
