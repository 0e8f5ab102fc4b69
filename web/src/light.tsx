// The light source: the laser module's state, temperatures and hours with a live chart of
// the last minutes, and the lamps' power, cool-down and history. Temperatures and light
// output are sampled once a second from the moment the page connects, so the chart already
// has its history when it is opened.

import { useContext, useEffect, useRef, useState } from "preact/hooks";
import uPlot from "uplot";
import "uplot/dist/uPlot.min.css";
import { StoreContext } from "./context";
import { Store } from "./store";
import { ControlView } from "./controls";
import { TimeSeries, formatDate, numericValue, StatusItem } from "./model";
import { itemName, Severity } from "./status";
import { Icon } from "./icons";

// The laser module's status group and what its items hold, by index.
const kLaserGroup = "LASER";
const kLaserItems: Record<number, string> = {
    1: "Module", 2: "Power state", 3: "Alarm state", 4: "Laser temperature",
    5: "Heat-sink temperature", 6: "Operating hours", 7: "Link",
};
const kLaserTemp = 4;
const kSinkTemp = 5;
const kHours = 6;
// The light output is the laser gain (0..10000, shown in percent).
const kLightOutput = "LGA";
const kLaserPower = "LPW";
const kLampGroup = "LAMP";
const kLampPower = "POW";
const kPowerState = "PWS";
const kHistoryMs = 5 * 60 * 1000;

const series = new TimeSeries(3, kHistoryMs);
let sampler: ReturnType<typeof setInterval> | undefined;

function laserItem(store: Store, idx: number): StatusItem | undefined {
    return store.items.get(kLaserGroup)?.find((i) => i.idx === idx);
}

function lightOutputPercent(store: Store): number | undefined {
    const value = store.controls.get(kLightOutput)?.value;
    return typeof value === "number" ? value / 100 : undefined;
}

// Called on every new connection: listens to what the panel shows and samples it.
export function startLightSampling(store: Store): void {
    void store.listenGroups([kLaserGroup, kLampGroup]);
    for (const code of [kLightOutput, kLaserPower, kLampPower, kPowerState]) {
        void store.loadControl(code);
    }
    if (sampler === undefined) {
        sampler = setInterval(() => {
            if (store.connection === "open") {
                series.add(Date.now(), [
                    numericValue(laserItem(store, kLaserTemp)?.value),
                    numericValue(laserItem(store, kSinkTemp)?.value),
                    lightOutputPercent(store),
                ]);
            }
        }, 1000);
    }
}

function Chart() {
    const holder = useRef<HTMLDivElement>(null);
    useEffect(() => {
        const element = holder.current!;
        const styles = getComputedStyle(document.documentElement);
        const colour = (name: string) => styles.getPropertyValue(name).trim() || "#888";
        const plot = new uPlot({
            width: Math.max(element.clientWidth, 280),
            height: 260,
            cursor: { drag: { x: false, y: false } },
            legend: { live: false },
            scales: { x: { time: true }, temp: { auto: true }, pct: { range: [0, 100] } },
            axes: [
                { stroke: colour("--text-muted"), grid: { stroke: colour("--grid") } },
                { scale: "temp", label: "°C", stroke: colour("--text-muted"), grid: { stroke: colour("--grid") } },
                { scale: "pct", label: "Light output %", side: 1, stroke: colour("--text-muted"), grid: { show: false } },
            ],
            series: [
                {},
                { label: "Laser °C", scale: "temp", stroke: colour("--chart-1"), width: 2, points: { show: false }, spanGaps: true },
                { label: "Heat sink °C", scale: "temp", stroke: colour("--chart-2"), width: 2, points: { show: false }, spanGaps: true },
                { label: "Light output %", scale: "pct", stroke: colour("--chart-3"), width: 2, points: { show: false }, spanGaps: true },
            ],
        }, [series.times, ...series.columns] as uPlot.AlignedData, element);
        const redraw = setInterval(() => plot.setData([series.times, ...series.columns] as uPlot.AlignedData), 1000);
        const resize = new ResizeObserver(() => plot.setSize({ width: Math.max(element.clientWidth, 280), height: 260 }));
        resize.observe(element);
        return () => { clearInterval(redraw); resize.disconnect(); plot.destroy(); };
    }, []);
    return <div class="chart" ref={holder} role="img" aria-label="Laser temperatures and light output over the last five minutes" />;
}

function Tile({ label, value, unit, status }: { label: string; value: string; unit?: string; status?: number }) {
    return (
        <div class="tile">
            <span class="tile-label">{label}</span>
            <span class="tile-value">{value}{unit && value !== "—" ? <small> {unit}</small> : null}</span>
            {status !== undefined && status > 0 && <Severity status={status} />}
        </div>
    );
}

interface LampRecord {
    type: string; installDate: number; strikes: number; failedStrikes: number;
    unexpectedOffs: number; preInstalledHours: number; totalHours: number;
}

function LampHistory() {
    const store = useContext(StoreContext);
    const [records, setRecords] = useState<LampRecord[] | null>(null);
    const [error, setError] = useState("");
    const power = store.controls.get(kLampPower)?.value;
    const open = store.connection === "open";
    useEffect(() => {
        if (!open) {
            return;
        }
        store.rpc.call("system:getLampHistory")
            .then((r) => setRecords(Array.isArray(r) ? r : []))
            .catch((e: Error) => setError(e.message));
    }, [store.epoch, open, power]);
    if (error) {
        return <p class="muted">{error}</p>;
    }
    if (!records) {
        return <p class="muted">Loading…</p>;
    }
    return (
        <div class="table-scroll">
            <table class="items">
                <thead>
                    <tr><th scope="col">Lamp</th><th scope="col">Installed</th><th scope="col">Hours</th>
                        <th scope="col">Strikes</th><th scope="col">Failed</th><th scope="col">Unexpected offs</th></tr>
                </thead>
                <tbody>
                    {records.map((r, i) => (
                        <tr key={i}>
                            <th scope="row">{r.type || "—"}</th>
                            <td>{formatDate(r.installDate)}</td>
                            <td>{r.totalHours}{r.preInstalledHours ? ` (${r.preInstalledHours} before)` : ""}</td>
                            <td>{r.strikes}</td><td>{r.failedStrikes}</td><td>{r.unexpectedOffs}</td>
                        </tr>
                    ))}
                </tbody>
            </table>
        </div>
    );
}

function ControlIfPresent({ code }: { code: string }) {
    const store = useContext(StoreContext);
    const control = store.controls.get(code);
    return control && control.type ? <ControlView control={control} /> : null;
}

export function LightView() {
    const store = useContext(StoreContext);
    const laser = store.items.get(kLaserGroup) ?? [];
    const temperature = (idx: number) => {
        const n = numericValue(laserItem(store, idx)?.value);
        return n === undefined ? "—" : n.toFixed(1);
    };
    const output = lightOutputPercent(store);
    const lampItems = store.items.get(kLampGroup) ?? [];
    return (
        <section class="view" aria-labelledby="light-title">
            <h2 id="light-title">Light source</h2>
            <div class="card">
                <h3 class="card-title"><Icon name="laser" /> Laser</h3>
                <div class="tiles" data-panel="laser">
                    <Tile label="Laser temperature" value={temperature(kLaserTemp)} unit="°C" status={laserItem(store, kLaserTemp)?.status} />
                    <Tile label="Heat-sink temperature" value={temperature(kSinkTemp)} unit="°C" status={laserItem(store, kSinkTemp)?.status} />
                    <Tile label="Light output" value={output === undefined ? "—" : output.toFixed(0)} unit="%" />
                    <Tile label="Operating hours" value={laserItem(store, kHours)?.value || "—"} unit="h" />
                </div>
                <Chart />
                <div class="entries">
                    <ControlIfPresent code={kLaserPower} />
                    <ControlIfPresent code={kLightOutput} />
                </div>
                <table class="items">
                    <tbody>
                        {laser.filter((i) => ![kLaserTemp, kSinkTemp, kHours].includes(i.idx)).map((item) => (
                            <tr key={item.idx}>
                                <th scope="row">{item.desc || kLaserItems[item.idx] || itemName(item)}</th>
                                <td>{item.value || "—"}</td>
                                <td><Severity status={item.status} /></td>
                            </tr>
                        ))}
                    </tbody>
                </table>
            </div>
            <div class="card">
                <h3 class="card-title"><Icon name="lamp" /> Lamps</h3>
                <div class="entries">
                    <ControlIfPresent code={kLampPower} />
                    <ControlIfPresent code={kPowerState} />
                </div>
                {store.cooldownSec > 0 && (
                    <p class="cooldown" role="status"><Icon name="power" /> Cooling down: {store.cooldownSec} s left</p>
                )}
                {lampItems.length > 0 && (
                    <table class="items">
                        <tbody>
                            {lampItems.map((item) => (
                                <tr key={item.idx}>
                                    <th scope="row">{itemName(item)}</th>
                                    <td>{item.value || "—"}</td>
                                    <td><Severity status={item.status} /></td>
                                </tr>
                            ))}
                        </tbody>
                    </table>
                )}
                <h4>History</h4>
                <LampHistory />
            </div>
        </section>
    );
}
