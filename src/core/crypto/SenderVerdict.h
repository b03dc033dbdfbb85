#pragma once

#include <QString>

// Who signed an opened file, and how far that can be believed. The name follows the naming rule
// of decryption (the user's login name, a contact's NIVO ID, else the certificate's common name);
// the trust says whether the account service stands behind the certificate that gave it.
struct SenderVerdict {
    enum class Trust {
        Verified,        // issued under the service root, valid at signing time, may sign
        NoCertificate,   // the file carries no certificate of its signer
        SelfSigned,
        OtherAuthority,  // chains to no root we trust
        Expired,         // at signing time
        NotYetValid,     // at signing time
        NotForSigning,   // its key usage forbids signatures
    };

    QString name;  // "" when nobody was named
    Trust trust = Trust::NoCertificate;
    // The contact whose NIVO ID an unverified signer's name takes although the certificate is not
    // the one stored for that contact; "" otherwise.
    QString impersonatedContact;

    [[nodiscard]] bool verified() const noexcept { return trust == Trust::Verified; }
    // A short reason a person understands; "" when verified.
    [[nodiscard]] QString reason() const;
};
