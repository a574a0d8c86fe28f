// The driver object: identity, defaults and error state.

#include "drivertecoservo.h"
#include "hex.h"
#include "linkdouble.h"

#include <gmock/gmock.h>

#include <memory>

using testing::ElementsAre;

namespace {

TEST(DriverObject, IdentityAndLimits)
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
    EXPECT_EQ(driver.getThisObject(), static_cast<QObject *>(&driver));
    EXPECT_FALSE(driver.isSupportSessionCommand());
    EXPECT_TRUE(driver.deviceSettingChanged(nullptr));
    EXPECT_TRUE(driver.isConnected(nullptr));
    EXPECT_THAT(
        std::vector<quint16>(driver.specialRegisterTable().begin(), driver.specialRegisterTable().end()),
        testing::Each(0));
    EXPECT_EQ(driver.specialRegisterTable().size(), 11);
}

TEST(DriverObject, DefaultRecordsAreNewOnEveryCall)
{
    DriverTecoServo driver;
    std::unique_ptr<DriverSetting> a(driver.getDefaultDriverSetting()), b(driver.getDefaultDriverSetting());
    ASSERT_NE(a.get(), b.get());
    for (DriverSetting *s : { a.get(), b.get() }) {
        EXPECT_EQ(s->timeout, 500);
        EXPECT_EQ(s->retry, 3);
        EXPECT_EQ(s->stationId, 1);
        EXPECT_EQ(s->delay, 0);
    }
    std::unique_ptr<DeviceSetting> d(driver.getDefaultSerialDeviceSetting()),
        e(driver.getDefaultSerialDeviceSetting());
    ASSERT_NE(d.get(), e.get());
    EXPECT_EQ(int(d->type), 16);
    EXPECT_EQ(d->string, QString("COM2"));
    EXPECT_EQ(d->baudrate, 9600);
    EXPECT_EQ(d->databits, 8);
    EXPECT_EQ(d->stopbits, 0);
    EXPECT_EQ(d->parity, 2);
    EXPECT_EQ(d->linkID, -1);
    EXPECT_TRUE(d->socketList.isEmpty());
    EXPECT_EQ(d->type & driver.supportedCommunicationFlags(), 16);
}

TEST(ErrorState, FlagAndTextFollowTheirOwnRules)
{
    DriverTecoServo driver;
    EXPECT_FALSE(driver.hasError());
    EXPECT_TRUE(driver.getLastError().isEmpty());

    driver.setCommError("CRC error");
    EXPECT_TRUE(driver.hasError());
    driver.clearError();
    EXPECT_FALSE(driver.hasError());
    EXPECT_EQ(driver.getLastError(), QString("CRC error")) << "clearError keeps the text";

    driver.setCommError("packet loss");
    driver.setCommError("CRC error");
    EXPECT_EQ(driver.getLastError(), QString("CRC error")) << "a second error replaces the first";
}

TEST(DriverObject, InitializeAndValidation)
{
    DriverTecoServo driver;
    EXPECT_TRUE(driver.initialize(nullptr));

    LinkDouble link;
    EXPECT_TRUE(driver.initialize(&link));
    EXPECT_THAT(link.calls, ElementsAre("setParameter 12 0 int"));

    EXPECT_FALSE(driver.validation("HR100"));
    EXPECT_FALSE(driver.validation(QString()));
    EXPECT_FALSE(driver.hasError());
}

} // namespace
