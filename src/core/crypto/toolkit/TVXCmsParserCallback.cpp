#include "crypto/toolkit/TVXCmsParserCallback.h"

#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// The texts, source file, method names and lines below are what callers and logs already expect
// from this class; they are kept exactly as they were.
const QString kSourceFile = u"NivoCrypto/TVXCmsParserCallback"_s;
const QString kMethodNotSupported = u"%1 method not supported. Use %2 instead"_s;
const QString kInit = u"init"_s;
const QString kInitInstead = u"initWithPfx:pfxPassword:keyExtractionCryptoProvider:"_s;
const QString kInitMethod = u"-[TVXCmsParserCallback init]"_s;
constexpr int kInitLine = 29;
const QString kNotSupported = u"Not Supported Exception"_s;
const QString kCiphertextMethod =
    u"-[TVXCmsParserCallback getDetachedCiphertextForEncodingLevel:]"_s;
constexpr int kCiphertextLine = 71;
const QString kCompressedMethod =
    u"-[TVXCmsParserCallback getDetachedCompressedDataForEncodingLevel:]"_s;
constexpr int kCompressedLine = 92;

}  // namespace

TVXCmsParserCallback::TVXCmsParserCallback() {
    throw comTruvexUtil_ExceptionUtil::exceptionWithExceptionName(
        TVXNotSupportedException, kMethodNotSupported.arg(kInit, kInitInstead), kSourceFile,
        kInitMethod, kInitLine);
}

TVXCmsParserCallback::TVXCmsParserCallback(
    QList<comTruvexCryptoBusinessLogic_CryptoParticipant> recipients,
    QList<comTruvexCryptoBusinessLogic_CryptoParticipant> signers, TVXStream* decoded,
    TVXStream* plainText)
    : m_recipients(std::move(recipients)),
      m_signers(std::move(signers)),
      m_decoded(decoded),
      m_plainText(plainText) {}

QList<comTruvexCryptoBusinessLogic_CryptoParticipant>
TVXCmsParserCallback::getRecipientForEncodingLevel(int /*encodingLevel*/) const {
    return m_recipients;
}

QList<comTruvexCryptoBusinessLogic_CryptoParticipant>
TVXCmsParserCallback::getSignerForEncodingLevel(int /*encodingLevel*/) const {
    return m_signers;
}

TVXStream* TVXCmsParserCallback::getDecoded() const {
    return m_decoded;
}

TVXStream* TVXCmsParserCallback::getDetachedPlaintextForEncodingLevel(
    int /*encodingLevel*/) const {
    return m_plainText;
}

TVXStream* TVXCmsParserCallback::getDetachedCiphertextForEncodingLevel(
    int /*encodingLevel*/) const {
    throw comTruvexUtil_ExceptionUtil::exceptionWithExceptionName(
        TVXStreamOperationException, kNotSupported, kSourceFile, kCiphertextMethod,
        kCiphertextLine);
}

TVXStream* TVXCmsParserCallback::getDetachedCompressedDataForEncodingLevel(
    int /*encodingLevel*/) const {
    throw comTruvexUtil_ExceptionUtil::exceptionWithExceptionName(
        TVXStreamOperationException, kNotSupported, kSourceFile, kCompressedMethod,
        kCompressedLine);
}
