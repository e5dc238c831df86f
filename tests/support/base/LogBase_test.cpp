#include "support/base/LogBase.h"

#include <gtest/gtest.h>

#include "support/base/XString.h"

namespace {

TEST(LogTree, RendersNestedContextsAsIndentedText) {
    LogTree log;
    {
        LogContextExitor outer(log, "createFromBinary");
        log.logInfo("PEM has multiple certificates.");
        {
            LogContextExitor inner(log, "loadPem");
            log.LogDataLong("numCerts", 3);
            log.logError("Failed to load PEM");
        }
        log.LogHex("flags", 255);
        log.LogDataBool("ok", false);
    }
    log.logInfo("after");
    EXPECT_EQ(log.text(),
              "createFromBinary:\n"
              "  PEM has multiple certificates.\n"
              "  loadPem:\n"
              "    numCerts: 3\n"
              "    error: Failed to load PEM\n"
              "  flags: ff\n"
              "  ok: false\n"
              "after\n");
    EXPECT_TRUE(log.hasError("Failed to load PEM") && log.numErrors() == 1);
    EXPECT_FALSE(log.hasError("PEM has multiple certificates."));
    EXPECT_TRUE(log.hasInfo("PEM has multiple certificates.") && log.hasContext("loadPem"));
    std::string v;
    EXPECT_TRUE(log.findData("numCerts", v) && v == "3");
    log.leaveContext();  // unbalanced: stays at the root
    log.leaveContext();
    log.logInfo("x");
    EXPECT_EQ("after\nx\n", log.text().substr(log.text().size() - 8));

    // A LogNull copies the switches but records nothing.
    LogTree parent;
    parent.verboseLogging = 1;
    parent.logKeywords.append("LOG_OCSP_HTTP");
    LogNull quiet(parent);
    EXPECT_TRUE(quiet.verboseLogging == 1 && quiet.logKeywords.containsSubstring("LOG_OCSP_HTTP"));
    quiet.logError("nothing");
    EXPECT_EQ(parent.numEntries(), 0);
}

}  // namespace
