// The extension module nordalib._nordalib; the package nordalib (python/nordalib/) presents it.
#include "python/src/Bindings.h"
#include "python/src/Values.h"

#include "nordalib/core/exception/SystemError.h"

#include <opencv2/core.hpp>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nordapy {

std::string pathArgument(py::handle path) {
    PyObject* fs = PyOS_FSPath(path.ptr());
    if (!fs)
        throw py::error_already_set();
    auto text = py::reinterpret_steal<py::object>(fs);
    if (!PyUnicode_Check(text.ptr()))
        throw py::type_error("the path must be a str or os.PathLike of str, not bytes");
    return text.cast<std::string>();
}

void requireReadable(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    int error = fd < 0 ? errno : 0;
    if (fd >= 0) {
        struct stat st {};
        if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode))
            error = EISDIR;
        ::close(fd);
    }
    if (error != 0) {
        errno = error;
        PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
        throw py::error_already_set();
    }
}

} // namespace nordapy

PYBIND11_MODULE(_nordalib, m) {
    namespace py = pybind11;
    m.doc() = "nordalib's C++ library for Python; use the package nordalib";
    // The library's own failures (damaged files, values out of range) carry its message; those of
    // the file system (a missing folder, a full disk) are the system's OSError with its number and
    // the file, which Python turns into FileNotFoundError, PermissionError, ...
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p)
                std::rethrow_exception(p);
        } catch (const norda::SystemError& e) {
            PyObject* args =
                Py_BuildValue("(isN)", e.error(), e.what(), PyUnicode_DecodeFSDefault(e.path().c_str()));
            if (args) {
                PyErr_SetObject(PyExc_OSError, args);
                Py_DECREF(args);
            }
        } catch (const norda::Exception& e) {
            PyErr_SetString(PyExc_ValueError, e.what());
        } catch (const cv::Exception& e) {
            PyErr_SetString(PyExc_ValueError, e.what());
        }
    });
    nordapy::initValues();
    nordapy::bindRix(m);
    auto pxm = m.def_submodule("pxm", "PXM raw-frame recordings");
    nordapy::bindPxm(pxm);
    nordapy::bindTools(m);
    nordapy::bindMeasurement(m);
}
