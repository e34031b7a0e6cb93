// Suppressions for the sanitizers: reports from these functions and libraries are expected.

extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions();

// Discovery never releases its libudev devices. The strings of nodes that it merges or filters out stay allocated. The
// threads of umockdev do not exist in a forked process, which takes what they allocated for leaks.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:udev_device_new_from_syspath\n"
           "leak:udev_device_get_\n"
           "leak:Describe_Node\n"
           "leak:libglib-2.0.so\n";
}

// The trace buffer has no lock. umockdev runs a thread inside libraries that are not instrumented. The number of the
// socket that Send_To closes is taken over by files that libudev opens, which the sanitizer does not see. The object
// that umockdev preloads puts paths together in memory that all threads share. The locks inside libcpp-httplib are not
// seen either.
extern "C" const char* __tsan_default_suppressions()
{
    return "race:GLOG\n"
           "race:Send_To\n"
           "called_from_lib:libglib-2.0.so\n"
           "called_from_lib:libgobject-2.0.so\n"
           "called_from_lib:libgio-2.0.so\n"
           "called_from_lib:libumockdev.so\n"
           "called_from_lib:libumockdev-preload.so\n"
           "called_from_lib:libcpp-httplib.so\n";
}
