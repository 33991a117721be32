"""A fleet as one xarray.Dataset, read lazily by Dask and written to Zarr by many processes at once."""

from __future__ import annotations

import os
import sys
from collections import Counter
from functools import partial
from itertools import takewhile
from typing import Any, Dict, List, Optional, Tuple

import numpy as np

import calcut
from calcut import _files, _workers
from calcut._measures import LENS, date_of

try:
    import dask  # type: ignore[import]
    import dask.array  # type: ignore[import]
    import xarray  # type: ignore[import]
except ImportError as error:
    raise ImportError("a dataset needs xarray and Dask (Debian: python3-xarray python3-dask)") from error

CHUNK = _workers.BATCH  # modules of a chunk and of a task
TEXTS = ["text0", "text1", "text2", "id_bytes", "layout"]

Shape = Tuple[int, int, Tuple[int, ...]]  # rows, columns, places of the frequencies


def _facts(_start: int, paths: List[str]) -> List[Dict[str, Any]]:
    """What is known of a module without its arrays, or why it is refused."""
    found: List[Dict[str, Any]] = []
    for path in paths:
        try:
            module = calcut.read(path)
        except (OSError, calcut.CalcutError) as error:
            found.append({"fault": error.finding.text if isinstance(error, calcut.CalcutError) else str(error)})
            continue
        found.append({
            "size": (module.rows, module.columns),
            "places": [frequency.index for frequency in module.frequencies],
            "ids": [frequency.id for frequency in module.frequencies],
            "lens": list(module.lens),
            "date": date_of(module.text0),
            **{name: getattr(module, name) or "" for name in TEXTS if name != "id_bytes"},
            "id_bytes": (module.id_bytes or b"").hex(),
        })  # fmt: skip
    return found


def _load(paths: List[str], shape: Shape, rays: bool) -> Dict[str, Any]:
    """The arrays of some modules; a frequency that a module does not have is NaN."""
    rows, columns, places = shape
    count = len(paths)
    arrays: Dict[str, Any] = {
        "mask": np.zeros((count, rows, columns), np.uint8),
        "pixel_values": np.zeros((count, rows, columns), np.float32),
        "pixel_table": np.full((count, len(places), rows, columns), np.nan, np.float32),
    }
    if rays:
        arrays["directions"] = np.zeros((count, rows, columns, 3), np.float32)
    for i, path in enumerate(paths):
        module = calcut.read(path)
        for name in set(arrays) - {"pixel_table"}:
            arrays[name][i] = getattr(module, name)
        for frequency in module.frequencies:
            arrays["pixel_table"][i, places.index(frequency.index)] = frequency.pixel_table
    return arrays


DIMENSIONS = {
    "mask": ("module", "row", "column"),
    "pixel_values": ("module", "row", "column"),
    "pixel_table": ("module", "frequency", "row", "column"),
    "directions": ("module", "row", "column", "axis"),
}


def dataset(
    paths: Any, client: Any = None, *, rays: bool = False, jobs: Optional[int] = None, chunk: int = CHUNK
) -> "Dataset":
    """The modules as one dataset with the dimensions module, frequency, row and column.

    mask, pixel_values, pixel_table and, with rays, directions are Dask arrays that are read chunk by
    chunk when they are computed; lens, texts, date and path are there at once. Dumps that do not
    read, and those whose size is not that of most, are no modules of it: attrs["refused"] has their
    paths and faults. client and jobs are those of fleet.summarise().
    """
    names = list(dict.fromkeys(_files.dumps(paths)))
    facts: Dict[str, Dict[str, Any]] = {}
    for _, some, found in _workers.parts(_facts, names, client, jobs):
        facts.update(zip(some, found or [{"fault": "the process that read it ended"}] * len(some)))
    sizes = Counter(fact["size"] for fact in facts.values() if "size" in fact)
    size = min(sizes, key=lambda each: (-sizes[each], each)) if sizes else (0, 0)
    for fact in facts.values():
        if fact.get("size", size) != size:
            rows, columns = fact["size"]
            fact["fault"] = f"{columns} x {rows} pixels, where most have {size[1]} x {size[0]}"
    good = [name for name in names if "fault" not in facts[name]]
    places = tuple(sorted({place for name in good for place in facts[name]["places"]}))
    shape: Shape = (size[0], size[1], places)

    loads = [dask.delayed(_load)(good[i : i + chunk], shape, rays) for i in range(0, len(good), chunk)]
    meta = _load([], shape, rays)
    data: Dict[str, Any] = {}
    for name, empty in meta.items():
        blocks = [
            dask.array.from_delayed(load[name], (len(good[i * chunk : (i + 1) * chunk]), *empty.shape[1:]), empty.dtype)
            for i, load in enumerate(loads)
        ]
        data[name] = (DIMENSIONS[name], dask.array.concatenate(blocks) if blocks else empty)
    data["lens"] = (("module", "parameter"), np.array([facts[name]["lens"] for name in good]).reshape(-1, len(LENS)))
    ids = np.zeros((len(good), len(places)), np.int64)
    for i, name in enumerate(good):
        for place, number in zip(facts[name]["places"], facts[name]["ids"]):
            ids[i, places.index(place)] = number
    coordinates: Dict[str, Any] = {
        "path": ("module", np.array(good, object)),
        "date": ("module", np.array([facts[name]["date"] for name in good], "datetime64[ns]")),
        **{text: ("module", np.array([facts[name][text] for name in good], object)) for text in TEXTS},
        "frequency_id": (("module", "frequency"), ids),
        "frequency": np.array(places, np.int64),
        "parameter": np.array(LENS, object),
    }
    refused = {name: facts[name]["fault"] for name in names if "fault" in facts[name]}
    return Dataset(data, coordinates, {"refused": refused})


# ---------------------------------------------------------------------------------------- Zarr --
# A store grows by whole runs. Its consolidated metadata, which readers look at, are written last: until
# then they see what the run before left. Every chunk belongs to one task, a chunk file gets its name when
# it is whole, and progress/written is set for a module after all of its arrays. So whoever ends on the way,
# nothing half is taken for good, and the next run writes what is missing.


def _write(start: int, paths: List[str], store: str, shape: Shape, rays: bool) -> List[bool]:
    """Puts modules into their place of the arrays."""
    import zarr  # type: ignore[import]
    from numcodecs import blosc  # type: ignore[import]

    blosc.use_threads = False  # those of a parent process would be waited for in vain
    group = zarr.open_group(store, mode="r+")
    place = slice(start, start + len(paths))
    for name, values in _load(paths, shape, rays).items():
        group[name][place] = values
    group["progress/written"][place] = True
    return [True] * len(paths)


def _default_client() -> Any:
    if "distributed" not in sys.modules:
        return None
    from distributed import get_client  # type: ignore[import]

    try:
        return get_client()
    except ValueError:
        return None


class Dataset(xarray.Dataset):  # type: ignore[misc]
    """An xarray.Dataset that writes a fleet so that a run which was cut short can be completed."""

    __slots__ = ()

    def to_zarr(self, store: Any = None, *words: Any, client: Any = None, jobs: Optional[int] = None, **named: Any) -> Any:
        """Writes the modules that the store does not hold yet, behind those that it holds.

        By the workers of client (default: the active one), else by processes of this machine; returns
        the store as a dataset. Other arguments, or a dataset that is not as dataset() made it, are
        xarray's own business.
        """
        ours = {"path", "pixel_table"} <= set(self.variables) and "module" in self["pixel_table"].dims
        if words or named or not ours or not isinstance(store, (str, os.PathLike)):
            return super().to_zarr(store, *words, **named)
        import zarr

        path = os.fsdecode(store)
        group = self._with_room(path)
        written, chunk = group["progress/written"][:], group["mask"].chunks[0]
        shape: Any = (*group["mask"].shape[1:], tuple(int(place) for place in group["frequency"][:]))
        items: List[Tuple[int, List[str]]] = []
        for place, name in enumerate(group["path"][:]):
            if written[place]:
                continue
            if items and place % chunk and place == items[-1][0] + len(items[-1][1]):
                items[-1][1].append(name)
            else:
                items.append((place, [name]))
        work = partial(_write, store=path, shape=shape, rays="directions" in group)
        lost: List[str] = []
        for _, names, done in _workers.run(work, items, client or _default_client(), jobs):
            lost += names if done is None else []
        if lost:
            raise RuntimeError(f"not written, because the processes that read them ended: {', '.join(lost)}")
        zarr.consolidate_metadata(path)
        return xarray.open_zarr(path)

    def _with_room(self, path: str) -> Any:
        """The store with a place for each module; all that is small is written."""
        import zarr

        if os.path.isdir(path) and os.listdir(path) and not os.path.exists(os.path.join(path, ".zgroup")):
            raise FileExistsError(f"{path} holds something else")
        group = zarr.open_group(path, mode="a")
        chunk = self.chunks.get("module", (CHUNK,))[0] if self.sizes["module"] else CHUNK
        for name, variable in self.variables.items():
            if name not in group:
                _create(group, name, variable, chunk)
        if "progress/written" not in group:
            group.create_dataset("progress/written", shape=0, chunks=chunk, dtype=bool, fill_value=False)
        if not os.path.exists(os.path.join(path, ".zmetadata")):
            group.attrs["coordinates"] = " ".join(map(str, self.coords))
            zarr.consolidate_metadata(path)
        places = group["frequency"][:]
        sides = tuple(self.sizes[side] for side in ("row", "column"))
        if group["mask"].shape[1:] != sides or not set(self["frequency"].values) <= set(places):
            raise ValueError(f"{path} holds modules of another size or of other frequencies")
        held = list(takewhile(bool, group["path"][:]))
        new = self.isel(module=~np.isin(self["path"].values, held))
        total = len(held) + new.sizes["module"]
        for name, variable in new.reindex(frequency=places, fill_value={"frequency_id": 0}).variables.items():
            if "module" in variable.dims and name != "path":
                group[name].resize(total, *group[name].shape[1:])
                if name not in DIMENSIONS:
                    group[name][len(held) :] = _stored(variable.values)
        group["progress/written"].resize(total)
        group["path"].resize(total)  # last: it says how many there are
        group["path"][len(held) :] = new["path"].values
        refused = {**group.attrs.get("refused", {}), **self.attrs.get("refused", {})}
        group.attrs["refused"] = {name: fault for name, fault in refused.items() if name not in set(self["path"].values)}
        return group


def _stored(values: Any) -> Any:
    return np.where(np.isnat(values), np.nan, values.astype("M8[D]").astype(float)) if values.dtype.kind == "M" else values


def _create(group: Any, name: Any, variable: Any, chunk: int) -> None:
    """An array of the store with room for no module yet."""
    import numcodecs  # type: ignore[import]

    grows = "module" in variable.dims
    shape = (0, *variable.shape[1:]) if grows else variable.shape
    kind = {"O": object, "M": np.float64}.get(variable.dtype.kind, variable.dtype)
    text = {"object_codec": numcodecs.VLenUTF8()} if kind is object else {}
    # xarray takes a fill value for "missing", which 0 is not.
    fill = np.nan if np.dtype(kind).kind == "f" else None
    chunks = (chunk, *variable.shape[1:]) if grows else True
    array = group.create_dataset(name, shape=shape, chunks=chunks, dtype=kind, fill_value=fill, **text)
    array.attrs["_ARRAY_DIMENSIONS"] = list(variable.dims)
    if variable.dtype.kind == "M":
        array.attrs.update(units="days since 1970-01-01", calendar="proleptic_gregorian")
    if not grows:
        array[...] = variable.values
