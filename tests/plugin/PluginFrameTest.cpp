// The plug-in as a browser meets it: exports, answers, table checks and the handlers' guards.
#include <unistd.h>

#include "PluginTestSupport.h"
#include "RunCommand.h"

namespace {

TEST(PluginExports, ExactlyTheFourEntryPoints) {
    for (const char* path : {PASSWAY_PLUGIN, PASSWAY_TEST_PLUGIN}) {
        CommandResult symbols = runCommand({"/usr/bin/nm", "-D", "--defined-only", path});
        ASSERT_EQ(0, symbols.exitCode) << symbols.err;
        std::vector<std::string> names;
        size_t start = 0;
        for (size_t nl; (nl = symbols.out.find('\n', start)) != std::string::npos; start = nl + 1) {
            std::string line = symbols.out.substr(start, nl - start);
            names.push_back(line.substr(line.rfind(' ') + 1));
        }
        std::sort(names.begin(), names.end());
        EXPECT_EQ((std::vector<std::string>{"NP_GetMIMEDescription", "NP_GetValue", "NP_Initialize", "NP_Shutdown"}),
                  names)
            << path;
    }
}

TEST_F(PluginTest, AnswersNameDescriptionAndMimeBeforeInitialisation) {
    ASSERT_TRUE(browser.loaded());
    EXPECT_STREQ("application/x-orvane-sslvpn:xvpn:Orvane Passway plugin", browser.getMIMEDescription());
    const char* text = nullptr;
    EXPECT_EQ(0, browser.getValue(nullptr, NPPVpluginNameString, &text));
    EXPECT_STREQ("Orvane Passway plugin", text);
    EXPECT_EQ(0, browser.getValue(nullptr, NPPVpluginDescriptionString, &text));
    EXPECT_STREQ("Orvane Passway plugin, Ver. 7135.2016.429.1", text);
    const char* untouched = "untouched";
    text = untouched;
    EXPECT_EQ(NPERR_INVALID_PARAM, browser.getValue(nullptr, NPPVpluginNeedsXEmbed, &text));
    EXPECT_EQ(untouched, text);
}

TEST_F(PluginTest, RefusesANewerMajorVersion) { EXPECT_EQ(NPERR_INCOMPATIBLE_VERSION_ERROR, browser.initialize(0x100)); }

TEST_F(PluginTest, RefusesABrowserTableShortOfForceRedraw) {
    EXPECT_EQ(NPERR_INVALID_FUNCTABLE_ERROR, browser.initialize(27, 175));
}

TEST_F(PluginTest, RefusesAPluginTableShortOfSetValue) {
    EXPECT_EQ(NPERR_INVALID_FUNCTABLE_ERROR, browser.initialize(27, 472, 112));
}

TEST_F(PluginTest, OldBrowserGetsNoNotifyRequests) {
    ASSERT_EQ(0, browser.initialize(8, 176));
    EXPECT_EQ(13, browser.plugin().version);
    NPError created = -1;
    browser.create({{"_probevpn", "1"}}, &created);
    EXPECT_EQ(0, created) << "a refused probe still keeps the instance";
    for (const auto& call : browser.calls()) EXPECT_NE("geturlnotify", call.function);
    EXPECT_TRUE(logged("[NS_ProbeVpn] ERROR! cannot call GetURL. url='http://127.0.0.1:44444/vpn.php?INFO', errorcode='8'\n"));
}

TEST_F(PluginTest, HandlersAnswerWithoutARecord) {
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
    EXPECT_EQ(0, p.event(&bare, nullptr));
    p.urlnotify(&bare, "x", NPRES_DONE, nullptr);

    FakeBrowser::Instance* instance = browser.create({});
    EXPECT_EQ(64000, p.writeready(&instance->npp, &stream));
    p.urlnotify(&instance->npp, "javascript:x()", NPRES_DONE, nullptr);  // no notify data: ignored
    int marker = 1;
    instance->window.window = &marker;
    EXPECT_EQ(NPERR_NO_ERROR, p.setwindow(&instance->npp, &instance->window));
    EXPECT_TRUE(logged("[PluginInstance_init]\n"));
    EXPECT_EQ("setvalue", browser.calls().back().function);
    EXPECT_EQ("3=0", browser.calls().back().url) << "the plug-in runs windowless";
}

}  // namespace
