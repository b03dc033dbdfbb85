#include <gtest/gtest.h>

#include "session/NivoGXUtil.h"

namespace {

TEST(ValidatorsTest, AccountNamesAllowOnlyLettersDigitsDotUnderscoreApostrophe) {
    for (const char* good : {"alice", "ALICE", "a", "o'neil", "john.smith_2", "...", "'_'", "9"}) {
        EXPECT_TRUE(NivoGXUtil::IsValidAccount(QString::fromUtf8(good))) << good;
    }
    for (const char* bad : {"", " ", "alice smith", "alice-smith", "alice@example.com", " alice",
                            "alice\t", "zoë", "a/b", "a\"b", "a;b"}) {
        EXPECT_FALSE(NivoGXUtil::IsValidAccount(QString::fromUtf8(bad))) << bad;
    }
}

TEST(ValidatorsTest, EmailNeedsLabelsAfterTheAtSignAndAnAlphabeticTopLabel) {
    for (const char* good :
         {"a@b.co", "alice.smith+tag@mail.example.com", "x@my-host.org", "x@a1.b2.museum",
          "\"odd\"@example.COM", "a@b@example.com"}) {
        EXPECT_TRUE(NivoGXUtil::NSStringIsValidEmail(QString::fromUtf8(good))) << good;
    }
    for (const char* bad :
         {"", "alice", "@example.com", "alice@example", "alice@example.c", "alice@example.c0m",
          "alice@.example.com", "alice@example..com", "alice@exa_mple.com", "alice@example.com.",
          "alice@example.com\n", "alice@exa mple.com"}) {
        EXPECT_FALSE(NivoGXUtil::NSStringIsValidEmail(QString::fromUtf8(bad))) << bad;
    }
}

}  // namespace
