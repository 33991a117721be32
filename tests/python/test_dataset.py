import os

import calcut
import numpy as np
import pytest
from calcut import fleet
from conftest import make

pytest.importorskip("dask")
xarray = pytest.importorskip("xarray")
pytest.importorskip("zarr")
from calcut import dataset  # noqa: E402


@pytest.fixture
def paths(tmp_path):
    folder = tmp_path / "line"
    folder.mkdir()
    made = [make(folder / f"m{i:02}", "--size", "16x12", "--seed", i) for i in range(10)]
    make(folder / "m03", "--size", "16x12", "--frequencies", "2", "--seed", "3", "--force")
    make(folder / "x0", "--size", "20x12")
    (folder / "x1").write_bytes(made[0].read_bytes()[:-1])
    return [*sorted(folder.iterdir()), folder / "missing"]


def equal(found, paths):
    """Whether a dataset holds what each dump does."""
    assert list(found["path"].values) == [str(path) for path in paths]
    for place, path in enumerate(paths):
        module, here = calcut.read(path), found.isel(module=place)
        assert np.array_equal(here["mask"], module.mask) and np.array_equal(here["pixel_values"], module.pixel_values)
        for frequency in module.frequencies:
            assert np.array_equal(here["pixel_table"][frequency.index], frequency.pixel_table)
            assert here["frequency_id"][frequency.index] == frequency.id
        assert np.isnan(here["pixel_table"][len(module.frequencies) :]).all()
        assert np.array_equal(here["lens"], module.lens) and here["text2"] == module.text2
        assert str(here["date"].values)[:10].replace("-", "") in module.text0
    return True


def test_a_fleet_is_a_lazy_dataset(paths):
    data = fleet.dataset(paths, rays=True, jobs=2, chunk=4)
    assert data["pixel_table"].dims == ("module", "frequency", "row", "column") and data.sizes["module"] == 10
    assert data["mask"].chunks[0] == (4, 4, 2)
    assert equal(data.compute(), paths[:10])
    assert np.array_equal(data["directions"][7], calcut.read(paths[7]).directions)
    refused = {os.path.basename(path): fault for path, fault in data.attrs["refused"].items()}
    assert refused.keys() == {"x0", "x1", "missing"} and refused["x0"] == "20 x 12 pixels, where most have 16 x 12"
    assert "payload outside the file" in refused["x1"] and "No such file" in refused["missing"]
    # What went away meanwhile is an error, not a hole.
    paths[5].unlink()
    with pytest.raises(FileNotFoundError):
        data["mask"].compute()
    assert fleet.dataset([paths[12]]).sizes["module"] == 0


def test_a_store_grows_and_a_run_cut_short_is_completed(paths, tmp_path, monkeypatch):
    store = tmp_path / "line.zarr"
    first = fleet.dataset(paths[:5], chunk=4).to_zarr(store)
    assert equal(first, paths[:5])
    data = fleet.dataset(paths, chunk=4)
    healthy, deadly = dataset._load, str(paths[8])

    def load(names, *rest):
        return os._exit(9) if deadly in names else healthy(names, *rest)

    monkeypatch.setattr(dataset, "_load", load)
    with pytest.raises(RuntimeError, match="m08"):
        data.to_zarr(store, jobs=2)
    # Readers see what the run before left, and no module twice or half.
    assert equal(xarray.open_zarr(store), paths[:5])
    monkeypatch.setattr(dataset, "_load", healthy)
    written = []
    monkeypatch.setattr(dataset._workers, "run", lambda work, items, *_: [
        (start, names, written.extend(names) or work(start, names)) for start, names in items])  # fmt: skip
    assert equal(data.to_zarr(store), paths[:10])
    assert deadly in written and set(written) < set(map(str, paths[5:10])) | {deadly}
    assert set(xarray.open_zarr(store).attrs["refused"]) == set(map(str, paths[10:]))
    written.clear()
    assert equal(data.to_zarr(store), paths[:10]) and not written
    with pytest.raises(ValueError, match="another size"):
        fleet.dataset(paths[10]).to_zarr(store)
    with pytest.raises(FileExistsError):
        data.to_zarr(paths[0].parent)
    # What is computed from it is xarray's own.
    data.mean("module").to_zarr(tmp_path / "mean.zarr")
    assert np.allclose(xarray.open_zarr(tmp_path / "mean.zarr")["lens"], data["lens"].mean("module"))


def test_population(paths):
    pytest.importorskip("matplotlib")
    figure = fleet.population(fleet.dataset(paths))
    titles = [axes.get_title() for axes in figure.axes if axes.get_title()]
    assert len(titles) == 13 and "frequency 2: deviation of the residual" in titles
