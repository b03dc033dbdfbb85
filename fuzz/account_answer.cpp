// The body of an account server answer, as GetProfile and GetId read it. The server is remote:
// whatever it sends must end in a profile or a status text, never in a crash.
#include <QSet>
#include <stdexcept>

#include "FuzzSupport.h"
#include "account/NivoProfileAdmin.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// A failed result carries only its text.
void checkFailureIsBare(const NivoProfile& profile) {
    if (!profile.StatusText.isEmpty()) {
        FUZZ_CHECK(profile.Pfx.isNull() && profile.Cer.isNull() && profile.LoginName.isNull(),
                   u"a failed result carries data: "_s + profile.StatusText);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzSupport::quietQt();
    const FuzzSupport::FixedUser& user = FuzzSupport::fixedUser();
    const QString answer = QString::fromUtf8(FuzzSupport::bytesOf(data, size));

    const NivoProfile profile =
        NivoProfileAdmin::profileFromAnswer(answer, u"Fuzz-User"_s, user.password);
    static const QSet<QString> profileTexts{u""_s, NivoProfileAdmin::kServerUnableToProcess,
                                            NivoProfileAdmin::kUsernameNotRegistered,
                                            NivoProfileAdmin::kWrongPassword};
    FUZZ_CHECK(!profile.StatusText.isNull(), u"GetProfile gave no status text"_s);
    FUZZ_CHECK(
        profileTexts.contains(profile.StatusText) || profile.StatusText.startsWith(u"Error:"_s),
        u"GetProfile gave an unknown status text: "_s + profile.StatusText);
    checkFailureIsBare(profile);
    FUZZ_CHECK(profile.Cer.isEmpty() || !profile.Pfx.isEmpty(),
               u"a certificate without the key file it came from"_s);
    FUZZ_CHECK(!profile.LoginName.contains(u"||"_s), u"the login name keeps a separator"_s);

    try {
        const NivoProfile id = NivoProfileAdmin::nivoIdFromAnswer(answer);
        static const QSet<QString> idTexts{u""_s, NivoProfileAdmin::kServerUnableToProcess,
                                           NivoProfileAdmin::kInvalidNivoIdName,
                                           NivoProfileAdmin::kInvalidNivoIdEmail};
        FUZZ_CHECK(idTexts.contains(id.StatusText),
                   u"GetId gave an unknown status text: "_s + id.StatusText);
        checkFailureIsBare(id);
        FUZZ_CHECK(id.Pfx.isNull() && id.LoginName.isNull(), u"GetId filled more than Cer"_s);
    } catch (const std::invalid_argument&) {
        // The one failure GetId leaves to its caller.
    }
    return 0;
}
