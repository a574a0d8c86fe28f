#include <QCoreApplication>
#include <gmock/gmock.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
