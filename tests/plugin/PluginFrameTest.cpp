// The plug-in as a browser meets it: exports, answers, table checks and the handlers' guards.
#include "PluginTestSupport.h"

namespace {

TEST(PluginExports, ExactlyTheFourEntryPoints) {
    for (const char* path : {PASSWAY_PLUGIN, PASSWAY_TEST_PLUGIN}) {
        CommandResult names = runCommand({"/bin/sh", "-c", std::string("nm -D --defined-only ") + path + " | awk '{print $3}' | sort"});
        EXPECT_EQ("NP_GetMIMEDescription\nNP_GetValue\nNP_Initialize\nNP_Shutdown\n", names.out) << path << names.err;
    }
}

TEST_F(PluginTest, AnswersNameDescriptionAndMimeBeforeInitialisation) {
    EXPECT_STREQ("application/x-orvane-sslvpn:xvpn:Orvane Passway plugin", browser.getMIMEDescription());
    const char* text = "untouched";
    EXPECT_EQ(NPERR_INVALID_PARAM, browser.getValue(nullptr, NPPVpluginNeedsXEmbed, &text));
    EXPECT_STREQ("untouched", text);
    EXPECT_EQ(0, browser.getValue(nullptr, NPPVpluginNameString, &text));
    EXPECT_STREQ("Orvane Passway plugin", text);
    EXPECT_EQ(0, browser.getValue(nullptr, NPPVpluginDescriptionString, &text));
    EXPECT_STREQ("Orvane Passway plugin, Ver. 7135.2016.429.1", text);
}

TEST_F(PluginTest, RefusesNewerMajorVersionsAndShortTables) {
    const struct { const char* shows; uint16_t version, size, pluginSize; NPError expected; } rows[] = {
        {"a newer major version", 0x100, 472, 168, NPERR_INCOMPATIBLE_VERSION_ERROR},
        {"a browser table short of forceredraw", 27, 175, 168, NPERR_INVALID_FUNCTABLE_ERROR},
        {"a plug-in table short of setvalue", 27, 472, 112, NPERR_INVALID_FUNCTABLE_ERROR},
    };
    for (const auto& row : rows) EXPECT_EQ(row.expected, browser.initialize(row.version, row.size, row.pluginSize)) << row.shows;
}

TEST_F(PluginTest, AnOldBrowserGetsNoNotifyRequests) {
    ASSERT_EQ(0, browser.initialize(8, 176));
    EXPECT_EQ(13, browser.plugin().version);
    NPError created = -1;
    browser.create({{"_probevpn", "1"}}, &created);
    EXPECT_EQ(0, created) << "a refused probe still keeps the instance";
    EXPECT_TRUE(browser.calls().empty() || browser.calls().back().function != "geturlnotify");
    EXPECT_TRUE(logged("[NS_ProbeVpn] ERROR! cannot call GetURL. url='http://127.0.0.1:44444/vpn.php?INFO', errorcode='8'\n"));
}

TEST_F(PluginTest, HandlersAnswerWithoutARecordAndInitialiseOnTheFirstRealWindow) {
    ASSERT_EQ(0, browser.initialize());
    const NPPluginFuncs& p = browser.plugin();
    NPP_t bare = {};
    NPStream stream = {};
    char bytes[4] = {};
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, p.newp(nullptr, nullptr, NP_EMBED, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(268435455, p.writeready(&bare, &stream));
    EXPECT_EQ(4, p.write(&bare, &stream, 0, 4, bytes));
    EXPECT_EQ(NPERR_GENERIC_ERROR, p.setwindow(&bare, nullptr));
    EXPECT_EQ(NPERR_NO_ERROR, p.destroy(&bare, nullptr));
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, p.getvalue(nullptr, NPPVpluginNameString, nullptr));
    p.urlnotify(&bare, "x", NPRES_DONE, nullptr);

    FakeBrowser::Instance* instance = browser.create({});
    EXPECT_EQ(64000, p.writeready(&instance->npp, &stream));
    p.urlnotify(&instance->npp, "javascript:x()", NPRES_DONE, nullptr);  // no notify data: ignored
    EXPECT_EQ(NPERR_NO_ERROR, p.setwindow(&instance->npp, &instance->window));
    EXPECT_FALSE(logged("[PluginInstance_init]")) << "a window without a drawable initialises nothing";
    int marker = 1;
    instance->window.window = &marker;
    EXPECT_EQ(NPERR_NO_ERROR, p.setwindow(&instance->npp, &instance->window));
    EXPECT_TRUE(logged("[PluginInstance_init]\n"));
    EXPECT_EQ("3=0", browser.calls().back().url) << "the plug-in runs windowless";
}

}  // namespace
