"""Python host interface to the tovani SDK, over its C interface (ctypes; nothing compiled).

    import tovani
    tovani.attach_linux(host_mappings=[...], ca_file=..., documents_dir=...)
    tovani.init("MEDIA", "SLOT", [tovani.Category.MUSIC])
    tovani.set_callback(lambda result: ...)
    root = tovani.View(375, 667)
    tovani.show(root)
    tovani.run(timeout=60)          # the SDK's main loop, on this thread

Every call belongs on the thread that runs `run`. The libraries are looked up in the folder
named by TOVANI_LIBRARY_DIR when it is set, then where the system finds shared libraries.
"""
import ctypes
import os

__all__ = ["Result", "Category", "View", "version", "started", "set_dev_type", "init",
           "set_callback", "show", "attach_linux", "run", "quit"]

_SONAME_MAJOR = "1"


class Result:
    REWARDED = 0
    NO_AD = 1
    FAILED = 2
    LEFT_EARLY = 3


class Category:
    RPG = "0101"
    ACTION_SPORT = "0102"
    SIMULATION = "0103"
    RACING = "0104"
    CASUAL = "0105"
    PHOTO_RADIO = "02"
    MUSIC = "03"
    SPORT = "04"
    NEWS = "05"
    ENTERTAINMENT = "06"
    TRAVEL = "07"
    BUSINESS = "08"
    UTILITY = "09"
    FINANCE = "10"
    SHOPPING = "11"
    HEALTH = "12"
    NAVIGATION = "13"
    EDUCATION = "14"
    COMMUNICATION = "15"
    SNS = "16"
    COMMUNITY = "17"


def _load(name):
    folder = os.environ.get("TOVANI_LIBRARY_DIR")
    file_name = "lib%s.so.%s" % (name, _SONAME_MAJOR)
    return ctypes.CDLL(os.path.join(folder, file_name) if folder else file_name)


# The core first, so that the Linux library finds it loaded whatever the search path says;
# loading libtovani-linux makes its adapters the default platform.
_core = _load("tovani")
_linux = _load("tovani-linux")

_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_void_p)


def _declare(library, name, result, *arguments):
    function = getattr(library, name)
    function.restype = result
    function.argtypes = list(arguments)
    return function


_c = ctypes.c_char_p
_p = ctypes.c_void_p
_version = _declare(_core, "tovani_version", _c)
_started = _declare(_core, "tovani_started", ctypes.c_int)
_set_dev_type = _declare(_core, "tovani_set_dev_type", None, ctypes.c_int)
_init = _declare(_core, "tovani_init_with_categories", None, _c, _c, ctypes.POINTER(_c),
                 ctypes.c_size_t)
_set_callback = _declare(_core, "tovani_set_callback", None, _CALLBACK, _p)
_view_create = _declare(_core, "tovani_view_create", _p, ctypes.c_double, ctypes.c_double)
_view_release = _declare(_core, "tovani_view_release", None, _p)
_show = _declare(_core, "tovani_show", None, _p)
_options_create = _declare(_linux, "tovani_linux_options_create", _p)
_options_release = _declare(_linux, "tovani_linux_options_release", None, _p)
_add_mapping = _declare(_linux, "tovani_linux_options_add_host_mapping", ctypes.c_int, _p, _c)
_set_ca_file = _declare(_linux, "tovani_linux_options_set_ca_file", ctypes.c_int, _p, _c)
_set_documents = _declare(_linux, "tovani_linux_options_set_documents_dir", ctypes.c_int, _p, _c)
_set_rate = _declare(_linux, "tovani_linux_options_set_playback_rate", ctypes.c_int, _p,
                     ctypes.c_double)
_set_online = _declare(_linux, "tovani_linux_options_set_always_online", ctypes.c_int, _p,
                       ctypes.c_int)
_attach = _declare(_linux, "tovani_linux_attach", ctypes.c_int, _p)
_run = _declare(_linux, "tovani_linux_run", ctypes.c_int, ctypes.c_double)
_quit = _declare(_linux, "tovani_linux_quit", None)

# The C side holds only a pointer: the Python callable and its ctypes thunk live here.
_current_callback = None


def _text(value):
    """A str as UTF-8 bytes, bytes as they are (the SDK checks them), anything else None."""
    if isinstance(value, str):
        return value.encode("utf-8", "surrogateescape")
    if isinstance(value, bytes):
        return value
    return None


def version():
    return _version().decode()


def started():
    return bool(_started())


def set_dev_type(dev_type):
    _set_dev_type(1 if dev_type else 0)


def init(media_code, slot_code, categories=None):
    """Starts the SDK. Category elements that are not text are skipped, as the SDK skips
    non-string elements; `categories` may be None."""
    if categories is None:
        _init(_text(media_code), _text(slot_code), None, 0)
        return
    items = list(categories)
    array = (_c * max(1, len(items)))(*[_text(item) for item in items])
    _init(_text(media_code), _text(slot_code), array, len(items))


def set_callback(callback):
    """`callback(result)` receives every result code; None drops results."""
    global _current_callback
    if callback is None:
        _current_callback = None
        _set_callback(_CALLBACK(), None)
        return

    def trampoline(result, _user_data):
        try:
            callback(result)
        except Exception as error:  # an exception must not unwind through C frames
            print("tovani: Python callback raised %r" % (error,))

    _current_callback = _CALLBACK(trampoline)
    _set_callback(_current_callback, None)


class View:
    """A host root view of the given size in points."""

    def __init__(self, width, height):
        self._handle = _view_create(float(width), float(height))

    def release(self):
        if self._handle:
            _view_release(self._handle)
            self._handle = None

    def __del__(self):
        self.release()


def show(view):
    """Shows an ad over `view` (None: unattached). The result arrives through the callback."""
    _show(view._handle if view is not None else None)


def attach_linux(host_mappings=(), ca_file=None, documents_dir=None, playback_rate=None,
                 always_online=False):
    """Builds the Linux platform and hands it to the SDK; False when the SDK already had one."""
    options = _options_create()
    if not options:
        raise MemoryError("tovani_linux_options_create")
    try:
        for mapping in host_mappings:
            _add_mapping(options, _text(mapping))
        if ca_file is not None:
            _set_ca_file(options, _text(os.fspath(ca_file)))
        if documents_dir is not None:
            _set_documents(options, _text(os.fspath(documents_dir)))
        if playback_rate is not None:
            _set_rate(options, float(playback_rate))
        _set_online(options, 1 if always_online else 0)
        return _attach(options) == 0
    finally:
        _options_release(options)


def run(timeout=-1.0):
    """Runs the SDK's main loop here until quit() or `timeout` seconds (< 0: no limit).
    True when quit() ended it."""
    return _run(float(timeout)) == 1


def quit():
    _quit()
