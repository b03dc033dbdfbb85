// A protected file from anywhere, opened from disk as the command-line tool and the app open it:
// read in pieces, the plain content written beside the output and named only once verified.
#include "FuzzSupport.h"
#include "crypto/NivoCryptoOperation.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FuzzSupport::FixedUser& user = FuzzSupport::fixedUser();
    (void)FuzzSupport::checkDecrypt(
        FuzzSupport::bytesOf(data, size), FuzzSupport::MessageInput::File,
        [&user](const QByteArray&, const QString& inputPath, const QString& outputPath,
                QString& sender) {
            return NivoCryptoOperation::decryptFile(inputPath, user.profile, user.password,
                                                    outputPath, sender);
        });
    return 0;
}
