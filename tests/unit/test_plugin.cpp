// The library as the runtime sees it: loaded by path, reached through its
// entry points and its interface identifier.

#include "drivertecoservo.h"

#include <QPluginLoader>
#include <QPointer>
#include <dlfcn.h>
#include <gmock/gmock.h>

#include <cstring>
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
    EXPECT_EQ(driver->name(), QString("Teco Servo"));
    EXPECT_EQ(driver->getThisObject(), instance);
    EXPECT_STREQ(instance->metaObject()->className(), "DriverTecoServo");
    EXPECT_STREQ(instance->metaObject()->superClass()->className(), "QObject");
}

#if QTCOMPAT_QT5
// Qt 5 finds plug-ins by the identifier in their metadata (Qt 4's carry none).
TEST(PluginLoading, MetadataCarriesTheInterfaceIdentifier)
{
    QPluginLoader loader(QString::fromLocal8Bit(pluginPath));
    EXPECT_EQ(loader.metaData().value("IID").toString(), QString("com.quillmar.drivers.DriverInterface/1.1"));
    EXPECT_EQ(loader.metaData().value("className").toString(), QString("DriverTecoServo"));
}
#endif

TEST(PluginLoading, CreateDriverGivesIndependentObjects)
{
    PluginHandle plugin;
    ASSERT_NE(plugin.handle, nullptr) << dlerror();
    auto create = plugin.symbol<DriverInterface *(*)()>("CreateDriver");
    ASSERT_NE(create, nullptr) << "CreateDriver must be exported under its plain name";

    std::unique_ptr<DriverInterface> first(create());
    std::unique_ptr<DriverInterface> second(create());
    ASSERT_NE(first.get(), second.get());
    first->getThisObject()->setObjectName("first");
    EXPECT_TRUE(second->getThisObject()->objectName().isEmpty());
    EXPECT_FALSE(first->hasError());
    EXPECT_FALSE(second->hasError());
}

TEST(PluginLoading, PluginInstanceIsSharedUntilDeleted)
{
    PluginHandle plugin;
    ASSERT_NE(plugin.handle, nullptr) << dlerror();
    auto instanceOf = plugin.symbol<QObject *(*)()>("qt_plugin_instance");
    ASSERT_NE(instanceOf, nullptr);

    QPointer<QObject> first = instanceOf();
    ASSERT_FALSE(first.isNull());
    EXPECT_EQ(instanceOf(), first.data());
    delete first.data();
    EXPECT_TRUE(first.isNull());
    QObject *fresh = instanceOf();
    ASSERT_NE(fresh, nullptr);
    EXPECT_NE(qobject_cast<DriverInterface *>(fresh), nullptr);
    delete fresh;
}

TEST(PluginLoading, VerificationDataHasQtsForm)
{
    PluginHandle plugin;
    auto verification = plugin.symbol<const char *(*)()>("qt_plugin_query_verification_data");
    ASSERT_NE(verification, nullptr);
    const std::string text = verification();
    EXPECT_THAT(text,
        testing::MatchesRegex("pattern=QT_PLUGIN_VERIFICATION_DATA\nversion=[0-9]+\\.[0-9]+\\.[0-9]+\n"
                              "debug=(true|false)\nbuildkey=[^\n]+"));
}

TEST(MetaCast, AnswersByName)
{
    DriverTecoServo driver;
    void *self = &driver;
    void *interfacePart = static_cast<DriverInterface *>(&driver);
    ASSERT_NE(self, interfacePart) << "the interface part must be a distinct sub-object";

    struct Row
    {
        const char *name;
        void *expected;
    } rows[] = {
        { nullptr, nullptr },
        { "DriverTecoServo", self },
        { "DriverInterface", interfacePart },
        { "com.quillmar.drivers.DriverInterface/1.1", interfacePart },
        { "QObject", self },
        { "SomethingElse", nullptr },
        { "com.quillmar.drivers.DriverInterface/1.0", nullptr },
    };
    for (const Row &row : rows)
        EXPECT_EQ(driver.qt_metacast(row.name), row.expected) << (row.name ? row.name : "(null)");
}

// A driver that implements only what the interface leaves open.
class MinimalDriver : public DriverInterface
{
public:
    int totalSize() override { return 0; }
    bool write(AbstractDeviceInterface *, const CommunicatorCommand &, const QByteArray &) override
    {
        return false;
    }
    QByteArray read(AbstractDeviceInterface *, const CommunicatorCommand &) override { return QByteArray(); }
    bool initialize(AbstractDeviceInterface *) override { return false; }
    bool validation(const QString &) override { return false; }
    DeviceSetting *getDefaultSerialDeviceSetting() override { return nullptr; }
    DriverSetting *getDefaultDriverSetting() override { return nullptr; }
    int supportedCommunicationFlags() override { return 0; }
    void setDebugMode(bool) override { }
    int getBlockAccessSize() override { return 0; }
    int getBitBlockAccessSize() override { return 0; }
    bool hasError() override { return false; }
    QString getLastError() override { return QString(); }
    QObject *getThisObject() override { return nullptr; }
};

TEST(DriverInterfaceBase, BodiesOfTheBaseClass)
{
    MinimalDriver driver;
    EXPECT_EQ(driver.name(), QString("Not Assigned"));
    EXPECT_EQ(driver.vender(), QString("Not Assigned"));
    EXPECT_EQ(driver.getVersionNumber(), QString("Not Assigned"));
    EXPECT_EQ(driver.getStringBasedDefaultDriverSetting(), QString("RS232,9600,EVEN,7,1"));
    EXPECT_FALSE(driver.isSupportSessionCommand());
    driver.setSessionCommand(QList<CommunicatorCommand>() << CommunicatorCommand(Word, 1, "HR1"));
    driver.clearSessionCommand();
    DeviceSetting setting(SerialDeviceType, "COM1", 9600, 8, 1, 0);
    EXPECT_TRUE(driver.deviceSettingChanged(nullptr));
    EXPECT_TRUE(driver.deviceSettingChanged(&setting));
    EXPECT_TRUE(driver.isConnected(nullptr));
}

} // namespace
