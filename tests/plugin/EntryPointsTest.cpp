// The plug-in's entry points and handlers as a browser calls them, the element's parameters, and what their
// texts cost.
#include <cerrno>
#include <new>

#include "PluginTest.h"

// Every CString buffer comes from operator new[]: counted here while g_counting is set.
bool g_counting = false;
size_t g_bytes = 0;
void* operator new[](size_t size) {
    g_bytes += g_counting ? size : 0;
    if (void* block = malloc(size != 0 ? size : 1)) return block;
    throw std::bad_alloc();
}
void operator delete[](void* block) noexcept {
    free(block);
}
void operator delete[](void* block, size_t) noexcept {
    free(block);
}

namespace {

TEST(PluginExports, ExactlyTheFourEntryPoints) {
    for (std::string path : {PASSWAY_PLUGIN, PASSWAY_TEST_PLUGIN})
        EXPECT_EQ(
            "NP_GetMIMEDescription\nNP_GetValue\nNP_Initialize\nNP_Shutdown\n",
            runCommand({"/bin/sh", "-c", "nm -D --defined-only " + path + " | awk '{print $3}' | sort"}).out);
}

TEST_F(PluginTest, AnswersBeforeInitialisationAndRefusesWhatItCannotServe) {
    EXPECT_STREQ("application/x-orvane-sslvpn:xvpn:Orvane Passway plugin",
                 browser.host().getMIMEDescription());
    const char* text = "untouched";
    EXPECT_EQ(NPERR_INVALID_PARAM, browser.host().getValue(nullptr, NPPVpluginNeedsXEmbed, &text));
    EXPECT_STREQ("untouched", text);
    EXPECT_EQ(0, browser.host().getValue(nullptr, NPPVpluginNameString, &text));
    EXPECT_STREQ("Orvane Passway plugin", text);
    EXPECT_EQ(0, browser.host().getValue(nullptr, NPPVpluginDescriptionString, &text));
    EXPECT_STREQ("Orvane Passway plugin, Ver. 7135.2016.429.1", text);
    // A newer major version, a browser table short of forceredraw, a plug-in table short of setvalue.
    EXPECT_EQ(NPERR_INCOMPATIBLE_VERSION_ERROR, browser.initialize(0x100));
    EXPECT_EQ(NPERR_INVALID_FUNCTABLE_ERROR, browser.initialize(27, 175));
    EXPECT_EQ(NPERR_INVALID_FUNCTABLE_ERROR, browser.initialize(27, 472, 112));
    // An old browser gets no notify requests; its refused probe still keeps the instance.
    ASSERT_EQ(0, browser.initialize(8, 176));
    EXPECT_EQ(13, browser.plugin().version);
    create({{"_probevpn", "1"}});
    EXPECT_TRUE(logged("[NS_NewPluginInstance] install='0' plugin->probeVpn='1' _last_param='0'\n"));
    EXPECT_TRUE(logged("cannot call GetURL. url='http://127.0.0.1:44444/vpn.php?INFO', errorcode='8'"));
}

TEST_F(Live, HandlersAnswerWithoutARecordAndInitialiseOnTheFirstDrawable) {
    const NPPluginFuncs& p = browser.plugin();
    NPP_t bare = {};
    streamData request;  // one of ours, for an element that has no record: nothing follows
    initNotifyData(&request, 3);
    NPStream stream = {};
    stream.notifyData = &request;
    char bytes[4] = {};
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, p.newp(nullptr, nullptr, NP_EMBED, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(268435455, p.writeready(&bare, &stream));
    EXPECT_EQ(4, p.write(&bare, &stream, 0, 4, bytes));
    EXPECT_EQ(NPERR_GENERIC_ERROR, p.setwindow(&bare, nullptr));
    EXPECT_EQ(NPERR_NO_ERROR, p.destroy(&bare, nullptr));
    const char* name = nullptr;
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, p.getvalue(nullptr, NPPVpluginNameString, &name));
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, p.setvalue(nullptr, NPNVxDisplay, nullptr));
    EXPECT_EQ(NPERR_GENERIC_ERROR, p.getvalue(&bare, NPPVpluginNameString, &name));
    EXPECT_EQ(NPERR_GENERIC_ERROR, p.setvalue(&bare, NPNVxDisplay, nullptr));
    p.urlnotify(&bare, "x", NPRES_DONE, nullptr);
    p.urlnotify(&bare, "http://127.0.0.1:44444/vpn.php?INFO", NPRES_NETWORK_ERR, &request);
    EXPECT_FALSE(logged("[PluginInstance_URLNotify]"));
    FakeBrowser::Instance* instance = browser.create({});
    EXPECT_EQ("3=0", browser.calls().back().url) << "the plug-in runs windowless";
    EXPECT_EQ(64000, p.writeready(&instance->npp, &stream));
    EXPECT_EQ(NPERR_NO_ERROR, p.getvalue(&instance->npp, NPPVpluginNameString, &name));
    EXPECT_STREQ("Orvane Passway plugin", name);
    EXPECT_EQ(NPERR_NO_ERROR, p.setvalue(&instance->npp, NPNVxDisplay, nullptr));
    p.urlnotify(&instance->npp, "javascript:x()", NPRES_DONE, nullptr);  // no notify data: ignored
    EXPECT_EQ(NPERR_GENERIC_ERROR, p.setwindow(&instance->npp, nullptr));
    EXPECT_EQ(NPERR_NO_ERROR, p.setwindow(&instance->npp, &instance->window));
    EXPECT_FALSE(logged("[PluginInstance_init]")) << "a window without a drawable initialises nothing";
    int drawable = 1;
    instance->window.window = &drawable;
    EXPECT_EQ(NPERR_NO_ERROR, p.setwindow(&instance->npp, &instance->window));
    EXPECT_TRUE(logged("[PluginInstance_init]\n"));
    // Calls no browser reaches, linked in directly.
    errno = 0;
    EXPECT_TRUE(IsProcessRunning(getpid())) << "a live process, even with no error left over";
    pid_t child = fork();  // another user's process, which this one may not signal, runs too
    if (child == 0) _exit((geteuid() != 0 || setuid(65534) == 0) && IsProcessRunning(1) ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ(0, PluginInstance_init(nullptr, nullptr));
    EXPECT_EQ(0, PluginInstance_init(static_cast<struct_nsPluginInstance*>(instance->npp.pdata), nullptr));
    EXPECT_EQ(0, PluginInstance_isInitialized(nullptr));
    PluginInstance_shut(nullptr);  // no record: nothing to do
}

TEST_F(Live, ParametersPassToTheServiceUnescapedAndTheFirstMatchingNameDecides) {
    create({});
    for (std::string line :
         {"vpnA:='browser_pid=" + kPid + "&'\n", std::string("[NS_NewPluginInstance] nothing to do\n"),
          "User Agent:'" + browser.userAgent + "'\n", std::string("Plugin version:'7135.2016.429.1'\n")})
        EXPECT_TRUE(logged(line)) << line;
    browser.create(
        {{"a", "1&b=2"}, {"", "v"}, {"x y", "'q'"}, {"_userpassword", "s3cret"}, {"_installmethod", "SUDO"}});
    EXPECT_TRUE(logged("vpnA:='a=1&b=2&=v&x y='q'&browser_pid=" + kPid + "&'\n"));
    EXPECT_TRUE(logged("_userpassword='**********'\n") && !logged("s3cret"))
        << "the password never reaches the log";
    EXPECT_TRUE(logged("[NS_NewPluginInstance] _installmethod='SUDO'\n"));
    FakeBrowser::Parameters odd = {
        {std::string(65536, 'n'), std::string(65536, 'v')}, {"", ""}, {"signature", "s"}};
    for (int i = 0; i < 1000; ++i) odd.push_back({"name" + std::to_string(i), "value"});
    EXPECT_EQ(NPERR_NO_ERROR, browser.destroy(create(odd)));
    // Names match by substring; install wins over probe, probe over launch.
    FakeService service;
    browser.create({{"my_probevpn_x", ""}, {"last_param", ""}});
    browser.create({{"_installvpn_signature", ""},
                    {"_probevpn", ""},
                    {"hostrooturl", "http://portal"},
                    {"tunvourl", "/pkg"},
                    {"tunvosize", "12ab"}});
    EXPECT_EQ((std::vector<std::string>{"http://127.0.0.1:44444/vpn.php?INFO", "http://portal/pkg"}),
              browser.urls(false));
    EXPECT_EQ("javascript:onTunvoDownloadStart(12ab)", lastPageCall());
    EXPECT_TRUE(logged("[NS_NewPluginInstance] install='1' plugin->probeVpn='1' _last_param='0'\n"));
}

// What the texts cost while the browser creates one element, counted rather than timed. The text for the
// service grows by doubling (at most about 4x its length) and the log line that shows it is formatted and
// written: a fixed multiple (about 6x measured), where copying the text on every append costs its length
// times the number of appends (4,000x for 2,000 parameters). A parameter the service never sees makes no room
// in it.
TEST_F(Live, TheParameterTextCostsInStepWithItsLength) {
    FakeBrowser::Parameters many;
    for (int i = 0; i < 2000; ++i) many.push_back({"p" + std::to_string(i), std::string(200, 'v')});
    const std::pair<FakeBrowser::Parameters, size_t> rows[] = {
        {many, 2000 * 206},
        {{{"a", std::string(1 << 20, 'v')}, {"b", std::string(1 << 20, 'w')}}, 2 << 20},
        {{{"_probevpn", std::string(1 << 21, 'v')}}, 0},
    };
    browser.destroy(browser.create({}));  // the log file is opened once, outside the count
    for (const auto& [parameters, text] : rows) {
        g_bytes = 0;
        g_counting = true;
        browser.destroy(browser.create(parameters));
        g_counting = false;
        EXPECT_LT(g_bytes, 12 * text + (1 << 16))
            << parameters.size() << " parameters, " << text << " bytes of text";
    }
}

}  // namespace
