#pragma once

#include <gtest/gtest.h>

#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QWidget>
#include <functional>
#include <memory>
#include <ostream>

#include "MemorySecretStore.h"
#include "ScriptedPrompter.h"
#include "ServerThread.h"
#include "UserSandbox.h"
#include "shell/NotificationHub.h"

// Readable failure messages for texts and lists of texts.
void PrintTo(const QString& text, std::ostream* os);

// Waits, with the event loop running, until the condition holds; false if it never does.
[[nodiscard]] bool eventually(const std::function<bool()>& condition);

// Replaces what a field holds by typing the text into it.
void typeInto(QWidget* window, const char* field, const QString& text);
void clickButton(QWidget* window, const char* button);
// Clicks the tool bar's button of the window's action of that name.
void clickToolBar(QWidget* window, const char* action);
[[nodiscard]] QString fieldText(QWidget* window, const char* field);
// Whether the window's busy indicator is showing.
[[nodiscard]] bool busy(QWidget* window);

// Shows the window off screen and answers the text of its first label that does not fit in the
// label, whole, as drawn; empty when every text fits.
[[nodiscard]] QString clippedText(QWidget& window);
// Renders the box that the application would show for the alert or question and fails the
// running test when a text of it does not fit.
void expectReadable(const ScriptedPrompter::Prompt& prompt);

// A private user, the real account server on 127.0.0.1, a hub and a scripted prompter.
class GuiTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Stops the server; its address stays in use, so requests find nothing listening.
    void stopServer() { server.reset(); }
    // Keeps credentials in the desktop's Secret Service instead of memory, where the test script
    // has started a private one. False when there is none.
    bool useRealSecretService();
    // Creates an account directly at the server.
    static void createAccount(const QString& name, const QString& password);
    // A profile file for an existing account, as an export writes it.
    [[nodiscard]] QString writeProfileFile(const QString& name, const QString& password);
    // What a previous run leaves behind for a signed-in user: credentials, folders, key files.
    static void leaveCompleteSignIn(const QString& name);
    // An ordinary file in the sandbox.
    [[nodiscard]] QString makeFile(const QString& name) const;

    UserSandbox sandbox;
    std::unique_ptr<ServerThread> server = std::make_unique<ServerThread>();
    NotificationHub hub;
    ScriptedPrompter prompter;
};
