// Speed: freed blocks are kept from use for a while only, new ones are not filled, and nothing is
// known of who had them. A file of its own: the sanitizer's runtime has a weak one that comes
// first.
extern "C" const char *__asan_default_options();
const char *__asan_default_options()
{
    return "quarantine_size_mb=1:thread_local_quarantine_size_kb=64:max_malloc_fill_size=0:malloc_"
           "context_size=0";
}
