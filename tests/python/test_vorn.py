"""Tests of the package on the example projects; examples/ stands in the current directory."""

import json
import math
import os
import pathlib
import shutil
import signal
import tempfile
import threading
import unittest

import numpy as np

import vorn


class ProjectTest(unittest.TestCase):
    def setUp(self):
        self.start = os.getcwd()
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)
        for name in ("aerial-block", "close-range-calibration", "pushbroom-strip"):
            shutil.copytree(pathlib.Path("examples") / name, self.folder / name)
        self.block = self.folder / "aerial-block" / "aerial-block.ctl"
        self.calibration = self.folder / "close-range-calibration" / "close-range-calibration.ctl"

    def tearDown(self):
        self.assertEqual(os.getcwd(), self.start, "the directory is as before")

    def edit(self, file, old, new):
        path = self.folder / file
        text = path.read_text()
        self.assertIn(old, text)
        path.write_text(text.replace(old, new, 1))


class Adjust(ProjectTest):
    def test_arrays_agree_with_one_another_and_with_the_files(self):
        result = vorn.adjust(self.calibration, rigorous=True)
        self.assertTrue(result.converged)
        n, k = result.statistics["points"], result.statistics["image_points"]
        self.assertEqual(result.point_coordinates.shape, (n, 3))
        self.assertEqual(result.residuals.shape, (k, 2))
        self.assertEqual(result.image_coordinates.shape, (k, 2))
        rms = np.sqrt((result.residuals**2).mean(axis=0))
        np.testing.assert_allclose(
            rms, [result.statistics["rms_vx"], result.statistics["rms_vy"]], rtol=1e-12)
        lines = self.calibration.with_suffix(".ocs").read_text().split("\n")
        written = {w[0]: [float(x) for x in w[1:4]] for w in map(str.split, lines) if len(w) >= 4}
        for name, xyz in zip(result.points["id"], result.point_coordinates):
            np.testing.assert_allclose(written[name], xyz, atol=6e-4)
        axes = result.points.array("axis_a", "axis_b", "axis_c")
        np.testing.assert_allclose((axes**2).sum(axis=1), (result.point_std_devs**2).sum(axis=1),
                                   rtol=1e-9, atol=1e-20)
        self.assertTrue(all(file.is_file() for file in result.files))
        self.assertEqual(result.document["project"]["control_file"], self.calibration.name)
        self.assertEqual(set(result.tables), {
            "points", "parameters", "image_points", "observed_parameters", "constraints", "images",
            "correlations", "check_points", "suspects"})

    def test_orientations_and_cameras_project_the_points(self):
        result = vorn.adjust(self.block)
        rotations = result.orientations.rotation
        np.testing.assert_allclose(rotations @ rotations.transpose(0, 2, 1),
                                   np.broadcast_to(np.eye(3), rotations.shape), atol=1e-12)
        row = {name: i for i, name in enumerate(result.orientations.image)}
        point = dict(zip(result.points["id"], result.point_coordinates))
        camera = result.cameras[0]
        images, points = result.image_points["image"], result.image_points["point"]
        for i in range(0, len(images), 97):
            image = row[images[i]]
            u = rotations[image].T @ (point[points[i]] - result.orientations.centre[image])
            computed = -camera.c * u[:2] / u[2] + [camera.xp, camera.yp]
            np.testing.assert_allclose(
                computed, result.image_coordinates[i] + result.residuals[i], atol=1e-12)

    def test_options_reach_the_run(self):
        plain = vorn.adjust(self.calibration)
        self.assertEqual(plain.document["settings"]["derivatives"], "approximate")
        self.assertGreater(plain.statistics["distance_to_minimum"]["value"], 0)
        solved = vorn.adjust(self.calibration, solve=True)
        self.assertIsNone(solved.statistics["distance_to_minimum"])
        self.assertLessEqual(solved.statistics["vtpv"], plain.statistics["vtpv"])
        prior = vorn.adjust(self.calibration, solve=True, prior=True)
        free = solved.point_std_devs > 0
        np.testing.assert_allclose(prior.point_std_devs[free] / solved.point_std_devs[free],
                                   solved.sigma0_prior / solved.sigma0, rtol=1e-6)
        inner = vorn.adjust(self.calibration, solve=True, datum="inner")
        self.assertEqual(inner.document["settings"]["datum"], "inner")
        cameras = vorn.adjust(self.calibration, cameras=True)
        self.assertIn(".cam", [file.suffix for file in cameras.files])
        bare = vorn.adjust(self.calibration, quality=False)
        np.testing.assert_array_equal(bare.point_coordinates, plain.point_coordinates)
        self.assertIsNone(bare.diagnosis)
        with self.assertRaisesRegex(vorn.Error, "quality=True"):
            bare.point_std_devs

    def test_tables_become_pandas(self):
        frame = vorn.adjust(self.block).points.to_pandas()
        self.assertEqual(frame["rays"].dtype, np.int64)
        self.assertEqual(set(frame["role"]), {"control", "intersection", "check"})
        self.assertAlmostEqual(frame.groupby("role")["sd_z"].mean()["intersection"],
                               frame[frame.role == "intersection"].sd_z.mean())

    def test_excluded_observations_are_left_out(self):
        first = vorn.adjust(self.block)
        point = first.points["id"][first.points["rays"].argmax()]
        image = first.image_points["image"][first.image_points["point"] == point][0]
        exclusions = self.folder / "exclusions.txt"
        exclusions.write_text(f"image-point {image} {point}\nimage-point {image} none\n")
        again = vorn.adjust(self.block, exclude=exclusions)
        self.assertIn("does not have 1 of its 2 observations", "\n".join(again.messages))
        self.assertEqual(again.image_points.num_rows, first.image_points.num_rows - 1)


class Figures(ProjectTest):
    """Figures of quality against their formulas, from the columns that they follow from."""

    def setUp(self):
        super().setUp()
        strip = self.folder / "pushbroom-strip" / "pushbroom-strip.ctl"
        self.results = [vorn.adjust(project, rigorous=True)
                        for project in (self.block, self.calibration, strip)]

    def each(self):
        for result in self.results:
            yield result, result.document["settings"], result.statistics

    def test_single_observations(self):
        for result, settings, statistics in self.each():
            t = result.image_points
            for a in "xy":
                v, s, r = t["v" + a], t["s" + a], t["r" + a]
                checked = r > 1e-6
                self.assertGreater(checked.sum(), 0.9 * len(r))
                w = v[checked] / (s[checked] * np.sqrt(r[checked]))
                np.testing.assert_allclose(t["w" + a][checked], w, rtol=1e-8)
                scale = settings["sigma0_prior"] / statistics["sigma0_posterior"]
                np.testing.assert_allclose(t["tau_" + a][checked], w * scale, rtol=1e-8)
                mdb = settings["delta0"] * s[checked] / np.sqrt(r[checked])
                np.testing.assert_allclose(t["mdb_" + a][checked], mdb, rtol=1e-8)
                np.testing.assert_allclose(t["error_" + a][checked], -v[checked] / r[checked],
                                           rtol=1e-8)
                self.assertTrue(np.isnan(t["w" + a][~checked]).all())

    def test_joint_tests_of_points(self):
        for result, _, _ in self.each():
            t = result.image_points
            u = np.stack([t["vx"] / t["sx"], t["vy"] / t["sy"]], axis=1)
            m = np.empty((len(u), 2, 2))
            m[:, 0, 0], m[:, 1, 1] = t["rx"], t["ry"]
            m[:, 0, 1] = m[:, 1, 0] = t["rxy"]
            two = t["t_dof"] == 2
            self.assertGreater((t["t_dof"] > 0).sum(), 0.9 * len(u))
            solved = np.linalg.solve(m[two], u[two][:, :, None])[:, :, 0]
            np.testing.assert_allclose(t["t"][two], (u[two] * solved).sum(axis=1), rtol=1e-5)
            np.testing.assert_allclose(t["t_log10_p"][two], -t["t"][two] / (2 * math.log(10)),
                                       rtol=1e-8)
            one = t["t_dof"] == 1
            values, vectors = np.linalg.eigh(m[one])
            along = (vectors[:, :, 1] * u[one]).sum(axis=1)
            np.testing.assert_allclose(t["t"][one], along**2 / values[:, 1], rtol=1e-4, atol=1e-6)
            small = one & (t["t"] < 30)
            p = [math.log10(math.erfc(math.sqrt(x / 2))) for x in t["t"][small]]
            np.testing.assert_allclose(t["t_log10_p"][small], p, rtol=1e-7, atol=1e-9)

    def test_sums(self):
        for result, settings, statistics in self.each():
            t = result.image_points
            variance = settings["sigma0_prior"]**2
            squares = ((t["vx"] / t["sx"])**2 + (t["vy"] / t["sy"])**2) * variance
            np.testing.assert_allclose(squares.sum(), statistics["vtpv_image"], rtol=1e-6)
            np.testing.assert_allclose(
                math.sqrt(statistics["vtpv"] / statistics["redundancy"]),
                statistics["sigma0_posterior"], rtol=1e-9)
            total = statistics["redundancy_sum"]["total"]
            self.assertAlmostEqual(total, statistics["redundancy"], delta=1e-6)
            self.assertAlmostEqual(sum(g["redundancy"] for g in result.groups), total, delta=1e-6)
            r = t["rx"] + t["ry"]
            for key, table in (("image", result.images), ("point", result.points)):
                sums = dict.fromkeys(table["id"], 0.0)
                for name, value in zip(t[key], r):
                    sums[name] += value
                np.testing.assert_allclose(table["redundancy"], list(sums.values()), atol=1e-6)
            largest = {}
            for name, wx, wy in zip(t["image"], t["wx"], t["wy"]):
                largest[name] = max(largest.get(name, 0.0), np.nanmax([0.0, abs(wx), abs(wy)]))
            np.testing.assert_allclose(result.images["max_w"], list(largest.values()), rtol=1e-8)
            test = statistics["global_test"]
            self.assertAlmostEqual(test["statistic"], statistics["vtpv"] / variance, places=6)
            self.assertEqual(test["passed"], test["lower"] <= test["statistic"] <= test["upper"])

    def test_ellipsoids_and_parameters(self):
        for result, _, _ in self.each():
            t = result.points
            c = np.empty((t.num_rows, 3, 3))
            for i, a in enumerate("xyz"):
                c[:, i, i] = t["sd_" + a]**2
            for i, j, name in ((0, 1, "cov_xy"), (0, 2, "cov_xz"), (1, 2, "cov_yz")):
                c[:, i, j] = c[:, j, i] = t[name]
            for axis in "abc":
                direction = t.array(*(f"axis_{axis}_{k}" for k in "xyz"))
                np.testing.assert_allclose((direction**2).sum(axis=1), 1.0, rtol=1e-8)
                turned = np.einsum("nij,nj->ni", c, direction)
                np.testing.assert_allclose(turned, direction * t["axis_" + axis][:, None]**2,
                                           atol=1e-6 * np.abs(c).max())
            self.assertTrue((t["axis_a"] >= t["axis_b"]).all())
            self.assertTrue((t["axis_b"] >= t["axis_c"]).all())
            p = result.parameters
            free = p["state"] != "fixed"
            self.assertTrue((p["sd"][free] > 0).all())
            self.assertTrue((p["sd"][~free] == 0).all() or (~free).sum() == 0)

    def test_correlations_are_listed_by_size(self):
        for result, settings, statistics in self.each():
            t = result.tables["correlations"]
            r = np.abs(t["r"])
            self.assertTrue((r[:-1] >= r[1:]).all())
            self.assertTrue((r >= settings["correlation_limit"]).all())
            counts = {}
            for kind in t["kind"]:
                counts[kind] = counts.get(kind, 0) + 1
            self.assertEqual(counts, {k: n for k, n in statistics["correlations_over_limit"].items()
                                      if n > 0})


    def test_the_inner_datum_takes_its_points(self):
        # Of the free network the standard deviations are the smallest where all points are the
        # datum (their sum), and over a list they are the smallest at its points.
        everything = vorn.adjust(self.block, datum="inner")
        self.assertIsNone(everything.quality_message)
        ids = list(everything.points["id"])
        some = [ids[k] for k in np.linspace(0, len(ids) - 1, 5).astype(int)]
        listed = vorn.adjust(self.block, datum="inner", datum_points=np.array(some + ["none"]))
        self.assertIn("datum_points: no point none was adjusted", listed.messages)
        chosen = np.isin(ids, some)
        of_all, of_some = (np.square(r.point_std_devs) for r in (everything, listed))
        self.assertLess(of_all.sum(), of_some.sum())
        self.assertLess(of_some[chosen].sum(), of_all[chosen].sum())
        self.assertEqual(listed.document["settings"]["datum"], "inner")


class Callbacks(ProjectTest):
    def test_progress_goes_through_the_stages(self):
        seen = []
        result = vorn.adjust(self.block, progress=seen.append)
        stages = list(dict.fromkeys(event.stage for event in seen))
        self.assertEqual(stages, ["reading", "initialisation", "iterations", "writing"])
        iterations = [event.iteration for event in seen if event.iteration]
        self.assertEqual([i.number for i in iterations],
                         [i["iteration"] for i in result.iterations])
        self.assertIsNone(iterations[-1].moving)
        self.assertTrue(math.isclose(iterations[-1].vtpv, result.iterations[-1]["vtpv_predicted"]))

    def test_false_ends_the_iterations(self):
        result = vorn.adjust(self.block, progress=lambda event: event.iteration is None)
        self.assertFalse(result.converged)
        self.assertEqual(len(result.iterations), 1)

    def test_what_a_callback_raises_is_raised(self):
        before = vorn.adjust(self.block).files[0].read_bytes()

        def fail(event):
            if event.iteration:
                raise KeyError("mine")

        with self.assertRaisesRegex(KeyError, "mine"):
            vorn.adjust(self.block, progress=fail)
        self.assertEqual(self.block.with_suffix(".out").read_bytes()[:200], before[:200])
        with self.assertRaisesRegex(vorn.Error, "another run"):
            vorn.adjust(self.block, progress=lambda event: vorn.check(self.block))

    def test_an_interrupt_ends_the_run(self):
        # Whoever starts the tests in the background leaves interrupts ignored.
        before = signal.signal(signal.SIGINT, signal.default_int_handler)
        self.addCleanup(signal.signal, signal.SIGINT, before)

        def interrupt(event):
            if event.iteration:
                signal.raise_signal(signal.SIGINT)

        with self.assertRaises(KeyboardInterrupt):
            vorn.adjust(self.block, progress=interrupt)
        self.assertTrue(vorn.adjust(self.block).converged)

    def test_threads_give_the_same_results(self):
        one = vorn.adjust(self.block, threads=1)
        two = vorn.adjust(self.block, threads=2)
        np.testing.assert_array_equal(one.point_coordinates, two.point_coordinates)
        with self.assertRaisesRegex(vorn.Error, "from 1 to 1024"):
            vorn.adjust(self.block, threads=0)
        child = os.fork()
        if child == 0:
            os._exit(0 if vorn.adjust(self.block).sigma0 == two.sigma0 else 1)
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 0)

    def test_threads_take_turns(self):
        results = {}

        def work(project):
            results[project] = vorn.adjust(project).sigma0

        threads = [threading.Thread(target=work, args=(project,))
                   for project in (self.block, self.calibration)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(results[self.block], vorn.adjust(self.block).sigma0)
        self.assertEqual(results[self.calibration], vorn.adjust(self.calibration).sigma0)


class Errors(ProjectTest):
    def test_words_that_are_no_numbers_are_found(self):
        self.edit("aerial-block/camera.txt", "0.0", "0.x")
        with self.assertRaisesRegex(vorn.Error, "camera.txt:") as caught:
            vorn.adjust(self.block)
        self.assertEqual(caught.exception.findings[0].code, "number-expected")
        errors = [f for f in vorn.check(self.block) if f.severity == "error"]
        self.assertEqual((errors[0].file, errors[0].code), ("camera.txt", "number-expected"))

    def test_a_network_without_datum_is_diagnosed(self):
        vorn.export_project(self.block, "colmap", self.folder / "model", given=True)
        path = vorn.import_project("colmap", self.folder / "model", self.folder / "p", datum="none")
        with self.assertRaises(vorn.Error) as caught:
            vorn.adjust(path)
        codes = [f["code"] for f in caught.exception.diagnosis["findings"]]
        self.assertTrue({"no_control", "insufficient_control"} & set(codes), codes)
        self.assertTrue(caught.exception.report.is_file())
        # Damped steps come to a minimum, which is one of many: no figures, and the reason why.
        free = vorn.adjust(path, solve=True)
        self.assertTrue(free.converged)
        self.assertNotIn("sd_x", free.points)
        self.assertRegex(free.quality_message, "[a-z]")
        with self.assertRaisesRegex(vorn.Error, "there are no standard deviations: ") as caught:
            free.point_std_devs
        self.assertIn(free.quality_message, str(caught.exception))

    def test_other_refusals_are_sentences(self):
        for call, says in (
                (lambda: vorn.adjust(self.folder), "directory"),
                (lambda: vorn.adjust(self.folder / "x.ctl"), "no such control file"),
                (lambda: vorn.check(self.folder / "x.ctl"), "cannot be read"),
                (lambda: vorn.adjust(self.block, robust="l1"), "no robust loss 'l1'"),
                (lambda: vorn.adjust(self.block, robust="huber", robust_scale=0), "positive"),
                (lambda: vorn.adjust(self.block, robust="huber", robust_scale=float("nan")), "positive"),
                (lambda: vorn.adjust(self.block, threads=2.5), "threads must be a number"),
                (lambda: vorn.adjust(self.block, datum_points=["1"]), "inner"),
                (lambda: vorn.adjust(self.block, datum="inner", datum_points=iter(())), "no point"),
                (lambda: vorn.adjust(self.block, exclude=self.folder / "none"), "cannot be read"),
                (lambda: vorn.import_project("colmap", self.folder / "no", "out"), "no such folder"),
                (lambda: vorn.export_project(self.block, "dwg", "out"), "unknown format 'dwg'")):
            with self.assertRaisesRegex(vorn.Error, says):
                call()
        with self.assertRaises(TypeError):
            vorn.adjust(self.block, speed=3)


class Exchange(ProjectTest):
    def test_a_project_goes_out_and_comes_back(self):
        model = self.folder / "colmap"
        summary = vorn.export_project(self.block, "colmap", model, rigorous=True)
        self.assertIn("half their sum of squares", summary)
        project = vorn.import_project("colmap", model, self.folder / "back", free=["f", "k1"],
                                      pixel_size=10)
        again = vorn.adjust(project, solve=True, quality=False)
        first = vorn.adjust(self.block, quality=False)
        self.assertEqual(again.points.num_rows, first.points.num_rows)
        given = vorn.export_project(project, "geojson", self.folder / "g.geojson", given=True,
                                    crs="EPSG:25832")
        self.assertIn("geojson", given)
        features = json.loads((self.folder / "g.geojson").read_text())["features"]
        self.assertEqual(sum(f["properties"]["layer"] == "points" for f in features),
                         first.points.num_rows)


if __name__ == "__main__":
    unittest.main()
