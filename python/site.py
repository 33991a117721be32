"""Prints where packages go below a prefix, relative to it, so that this interpreter finds them."""

import sys
import sysconfig

scheme = {"/usr": "deb_system", "/usr/local": "posix_local"}.get(sys.argv[1], "posix_prefix")
if scheme not in sysconfig.get_scheme_names():
    scheme = "posix_prefix"
base = "/usr" if scheme == "posix_local" else sys.argv[1]
path = sysconfig.get_path("platlib", scheme, {"base": base, "platbase": base})
print(path[len(sys.argv[1]) + 1 :])
