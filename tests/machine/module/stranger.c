// A module that nobody asked for.
#include <linux/module.h>

static int __init stranger_init(void) {
    return 0;
}
static void __exit stranger_exit(void) {}

module_init(stranger_init);
module_exit(stranger_exit);
MODULE_LICENSE("GPL");
