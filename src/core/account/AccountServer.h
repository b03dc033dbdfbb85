#pragma once

#include <QString>
#include <QUrl>

#include "net/HttpRequest.h"

// Where the account server is and how to talk to it: one base URL for every endpoint, and TLS
// trust in the compiled-in communication CAs beside the system's.
class AccountServer {
public:
    AccountServer() = delete;

    // The base URL in force: the one set by setBaseUrl, else $NIVOGX_SERVER, else the build's
    // default. Port 443 when the URL names none.
    [[nodiscard]] static QUrl baseUrl();
    // Overrides the environment and the default for this process (the CLI's --server). An empty
    // string restores them.
    static void setBaseUrl(const QString& url);
    // The full URL of an endpoint path such as "/nivo/GetId.aspx".
    [[nodiscard]] static QUrl endpoint(const QString& path);

    // Sends one form request to an endpoint and waits for the answer.
    [[nodiscard]] static HttpRequest::Result post(const QString& path,
                                                  const HttpRequest::Fields& fields);
    // The request options every account call uses: the communication CAs and the default timeout.
    [[nodiscard]] static HttpRequest::Options requestOptions();
};
