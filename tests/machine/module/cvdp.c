// Stands in for the kernel module of an engine: takes the parameter that the daemon gives, is in use while /dev/cvdp
// is open, and takes five seconds to come in while /run/cvdp-is-slow exists.
#include <linux/delay.h>
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/namei.h>

static bool mt;
module_param(mt, bool, 0444);

static const struct file_operations operations = {.owner = THIS_MODULE};
static struct miscdevice device = {.minor = MISC_DYNAMIC_MINOR, .name = "cvdp", .fops = &operations, .mode = 0666};

static int __init cvdp_init(void) {
    struct path path;
    if (kern_path("/run/cvdp-is-slow", LOOKUP_FOLLOW, &path) == 0) {
        path_put(&path);
        if (msleep_interruptible(5000) != 0) return -EINTR;
    }
    return misc_register(&device);
}

static void __exit cvdp_exit(void) {
    misc_deregister(&device);
}

module_init(cvdp_init);
module_exit(cvdp_exit);
MODULE_LICENSE("GPL");
