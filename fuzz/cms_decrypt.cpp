// A protected file from anywhere, opened in memory as the batch run opens it, and its outline as
// the command-line tool shows it without a key.
#include "FuzzSupport.h"
#include "crypto/NivoCryptoOperation.h"
#include "crypto/cms/CmsOutline.h"

using namespace Qt::Literals::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FuzzSupport::FixedUser& user = FuzzSupport::fixedUser();
    const QByteArray message = FuzzSupport::bytesOf(data, size);
    const QString outcome = FuzzSupport::checkDecrypt(
        message, FuzzSupport::MessageInput::Memory,
        [&user](const QByteArray& bytes, const QString&, const QString& outputPath,
                QString& sender) {
            // The user's certificate stands in for the service root, so that verdicts are judged.
            NivoCryptoOperation::SenderContext context;
            context.serviceRoot = user.profile.Cer;
            SenderVerdict verdict{.name = sender, .trust = {}, .impersonatedContact = {}};
            const QString opened = NivoCryptoOperation::decryptData(
                bytes, user.profile, user.password, outputPath, verdict, context);
            FUZZ_CHECK(opened.isEmpty() || verdict.name == sender,
                       u"a failed opening named a sender"_s);
            sender = verdict.name;
            return opened;
        });

    const CmsOutline outline = CmsOutline::inspect(message, {user.profile.Cer});
    if (outcome.isEmpty()) {
        // What opens with the user's key must show the user among its recipients.
        FUZZ_CHECK(outline.failure.isEmpty(),
                   u"an opened message has no outline: "_s + outline.failure);
        bool named = false;
        for (const CmsOutline::Recipient& recipient : outline.recipients) {
            named = named || recipient.certificateIndex == 0;
        }
        FUZZ_CHECK(named, u"the outline of an opened message does not name its reader"_s);
    }
    for (const CmsOutline::Recipient& recipient : outline.recipients) {
        FUZZ_CHECK(recipient.certificateIndex == -1 || recipient.certificateIndex == 0,
                   u"a recipient points past the known certificates"_s);
    }
    return 0;
}
