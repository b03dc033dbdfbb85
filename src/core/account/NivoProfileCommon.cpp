#include "account/NivoProfileCommon.h"

#include "BuildConfig.h"

namespace {
template <std::size_t N>
QByteArray copyOf(const char (&bytes)[N]) {
    return QByteArray(bytes, static_cast<qsizetype>(N));
}
}  // namespace

QByteArray NivoProfileCommon::getNivoRootCer() {
    return copyOf(BuildConfig::kServiceRootCa);
}

QByteArray NivoProfileCommon::getNivoCommRootCer() {
    return copyOf(BuildConfig::kCommRootCa);
}

QByteArray NivoProfileCommon::getNivoCommIntermediateCer() {
    return copyOf(BuildConfig::kCommIntermediateCa);
}
