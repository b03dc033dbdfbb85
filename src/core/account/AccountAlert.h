#pragma once

#include <QString>

// A refusal that the user sees as a modal alert: a short message and the text beneath it.
struct AccountAlert {
    QString message;
    QString informativeText;

    friend bool operator==(const AccountAlert&, const AccountAlert&) = default;
};
