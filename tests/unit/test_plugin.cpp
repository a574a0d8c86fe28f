// The driver as the runtime sees it: loaded by path, reached through its
// entry points and its interface identifier, with its identity and defaults.

#include "drivertecoservo.h"
#include "linkdouble.h"

#include <QPluginLoader>
#include <QPointer>
#include <dlfcn.h>
#include <gmock/gmock.h>

#include <memory>

namespace {

const char pluginPath[] = TECO_SERVO_PLUGIN_PATH;

struct PluginHandle
{
    void *handle = dlopen(pluginPath, RTLD_NOW | RTLD_LOCAL);
    ~PluginHandle()
    {
        if (handle)
            dlclose(handle);
    }
    template <typename F> F symbol(const char *name) { return reinterpret_cast<F>(dlsym(handle, name)); }
};

TEST(PluginLoading, QPluginLoaderReachesTheDriverInterface)
{
    QPluginLoader loader(QString::fromLocal8Bit(pluginPath));
    QObject *instance = loader.instance();
    ASSERT_NE(instance, nullptr) << loader.errorString().toStdString();
    DriverInterface *driver = qobject_cast<DriverInterface *>(instance);
    ASSERT_NE(driver, nullptr);
    EXPECT_EQ(driver->getThisObject(), instance);
#if QTCOMPAT_QT5
    // Qt 5 finds plug-ins by the identifier in their metadata (Qt 4's carry none).
    EXPECT_EQ(loader.metaData().value("IID").toString(), QString("com.quillmar.drivers.DriverInterface/1.1"));
#endif
}

TEST(PluginLoading, EntryPoints)
{
    PluginHandle plugin;
    ASSERT_NE(plugin.handle, nullptr) << dlerror();
    // CreateDriver: a new, independent object on every call.
    auto create = plugin.symbol<DriverInterface *(*)()>("CreateDriver");
    ASSERT_NE(create, nullptr) << "CreateDriver must be exported under its plain name";
    std::unique_ptr<DriverInterface> first(create()), second(create());
    ASSERT_NE(first.get(), second.get());
    first->getThisObject()->setObjectName("first");
    EXPECT_TRUE(second->getThisObject()->objectName().isEmpty());

    // qt_plugin_instance: one shared instance until it is deleted.
    auto instanceOf = plugin.symbol<QObject *(*)()>("qt_plugin_instance");
    ASSERT_NE(instanceOf, nullptr);
    QPointer<QObject> shared = instanceOf();
    ASSERT_FALSE(shared.isNull());
    EXPECT_EQ(instanceOf(), shared.data());
    delete shared.data();
    QObject *fresh = instanceOf();
    ASSERT_NE(fresh, nullptr);
    EXPECT_NE(qobject_cast<DriverInterface *>(fresh), nullptr);
    delete fresh;

    auto verification = plugin.symbol<const char *(*)()>("qt_plugin_query_verification_data");
    ASSERT_NE(verification, nullptr);
    EXPECT_THAT(std::string(verification()),
        testing::MatchesRegex("pattern=QT_PLUGIN_VERIFICATION_DATA\nversion=[0-9]+\\.[0-9]+\\.[0-9]+\n"
                              "debug=(true|false)\nbuildkey=[^\n]+"));
}

TEST(DriverObject, IdentityDefaultsAndInitialize)
{
    DriverTecoServo driver;
    EXPECT_EQ(driver.name(), QString("Teco Servo"));
    EXPECT_EQ(driver.vender(), QString("Modbus"));
    EXPECT_EQ(driver.getVersionNumber(), QString("1.0.0"));
    EXPECT_EQ(driver.getStringBasedDefaultDriverSetting(), QString("RS485,9600,NONE,8,2"));
    EXPECT_EQ(driver.totalSize(), 0x44000);
    EXPECT_EQ(driver.supportedCommunicationFlags(), 0x70);
    EXPECT_EQ(driver.getBlockAccessSize(), 125);
    EXPECT_EQ(driver.getBitBlockAccessSize(), 2008);

    // The default records are the caller's, new on every call.
    std::unique_ptr<DriverSetting> a(driver.getDefaultDriverSetting()), b(driver.getDefaultDriverSetting());
    ASSERT_NE(a.get(), b.get());
    EXPECT_EQ(std::vector<int>({ a->timeout, a->retry, a->stationId, a->delay }),
        std::vector<int>({ 500, 3, 1, 0 }));
    std::unique_ptr<DeviceSetting> d(driver.getDefaultSerialDeviceSetting()),
        e(driver.getDefaultSerialDeviceSetting());
    ASSERT_NE(d.get(), e.get());
    EXPECT_EQ(d->string, QString("COM2"));
    EXPECT_EQ(std::vector<int>({ int(d->type), d->baudrate, d->databits, d->stopbits, d->parity, d->linkID }),
        std::vector<int>({ 16, 9600, 8, 0, 2, -1 }));

    EXPECT_TRUE(driver.initialize(nullptr));
    LinkDouble link;
    EXPECT_TRUE(driver.initialize(&link));
    EXPECT_THAT(link.calls, testing::ElementsAre("setParameter 12 0 int"));
    EXPECT_FALSE(driver.validation("HR100"));
    EXPECT_FALSE(driver.hasError());
    EXPECT_TRUE(driver.getLastError().isEmpty());
}

} // namespace
