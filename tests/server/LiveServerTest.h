#pragma once

#include <gtest/gtest.h>

#include "ServerThread.h"
#include "account/AccountServer.h"

// Tests against one real server for the whole suite, which the app's account calls reach.
class LiveServerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        server = new ServerThread;
        AccountServer::setBaseUrl(server->baseUrl());
    }
    static void TearDownTestSuite() {
        AccountServer::setBaseUrl(QString());
        delete server;
        server = nullptr;
    }
    void SetUp() override { ASSERT_FALSE(server->baseUrl().isEmpty()); }

    static inline ServerThread* server = nullptr;
};
