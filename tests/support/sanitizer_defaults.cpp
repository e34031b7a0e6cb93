// What the runtimes of the sanitizers are asked to overlook, by function or name: each is meant.

extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions();

// Discovery keeps each libudev device with what it was asked for; its record's strings belong to the caller, and those
// of nodes that were merged or filtered out to nobody.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:udev_device_new_from_syspath\n"
           "leak:udev_device_get_\n"
           "leak:Describe_Node\n";
}

// The trace buffer has no lock. The mocked device tree has a thread of its own in libraries that are not instrumented.
extern "C" const char* __tsan_default_suppressions()
{
    return "race:GLOG\n"
           "called_from_lib:libglib-2.0.so\n"
           "called_from_lib:libgobject-2.0.so\n"
           "called_from_lib:libgio-2.0.so\n"
           "called_from_lib:libumockdev.so\n";
}
