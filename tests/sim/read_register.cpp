// Reads one device register as libkv does (one I2C_RDWR request: write the
// register number, read one byte after a repeated start) and prints it as
// 0x%02x. The kvsim test runs it under kvsim.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        std::fprintf(stderr, "usage: read_register BUS ADDRESS REGISTER\n");
        return 2;
    }
    const std::string path = std::string("/dev/i2c-") + argv[1];
    const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0)
    {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), std::strerror(errno));
        return 1;
    }
    const auto address =
        static_cast<uint16_t>(std::strtol(argv[2], nullptr, 0));
    uint8_t offset = static_cast<uint8_t>(std::strtol(argv[3], nullptr, 0));
    uint8_t value = 0;
    i2c_msg messages[] = {{address, 0, 1, &offset},
                          {address, I2C_M_RD, 1, &value}};
    i2c_rdwr_ioctl_data request{messages, 2};
    const int done = ::ioctl(fd, I2C_RDWR, &request);
    ::close(fd);
    if (done != 2)
    {
        std::fprintf(stderr, "I2C_RDWR: %s\n", std::strerror(errno));
        return 1;
    }
    std::printf("0x%02x\n", value);
    return 0;
}
