#!/usr/bin/env bash
# The main job, once through: a scene (or the cube given) is described, pictured, plotted, converted there and back, each
# copy checked against its source; then its statistics, spectra of regions, a noise-adjusted transform, unmixing, even
# columns and the reflectance of the ground.
# Pictures and a summary stay in demo-out/ (or $KS_DEMO_OUT).
#
#   cli/demo.sh BUILD_DIR [CUBE]
set -euo pipefail
export LC_ALL=C

if [[ $# -lt 1 || $# -gt 2 ]]; then
    echo "usage: $0 BUILD_DIR [CUBE]" >&2
    exit 1
fi
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
ks=$(cd "$1" && pwd)/cli/ks
out=${KS_DEMO_OUT:-$root/demo-out}
given=${2:-}
cube=$given

[[ -x $ks ]] || { echo "$ks is missing; build the project first." >&2; exit 1; }
if [[ -d $out && ! -e $out/summary.md && -n $(ls -A "$out") ]]; then
    echo "$out holds files that this demo did not make; move them, or set KS_DEMO_OUT to another folder." >&2
    exit 1
fi
if [[ -n $cube && $(realpath -m -- "$cube") == "$(realpath -m -- "$out")"/* ]]; then
    echo "$cube lies in $out, which the demo replaces; move it elsewhere first." >&2
    exit 1
fi
rm -rf "$out"
mkdir -p "$out"
summary=$out/summary.md
echo "# kslib demo: unfinished" > "$summary"   # marks the folder as ours, also when a step fails

rows=()
started=$EPOCHREALTIME
seconds() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", b - a }'; }

# timed TITLE OUTPUTS COMMAND...: runs and times one command; its notes are kept for the summary.
timed() {
    local title=$1 outputs=$2 begin end
    shift 2
    begin=$EPOCHREALTIME
    "$@" 2> "$out/.messages" || return 1
    end=$EPOCHREALTIME
    printf '  %-34s %7s s   %s\n' "$title" "$(seconds "$begin" "$end")" "$outputs"
    rows+=("| $title | $(seconds "$begin" "$end") s | $outputs |")
}

step() {
    timed "$@" && return
    cat "$out/.messages" >&2
    echo "failed: $1" >&2
    exit 1
}

# try: a step that not every image allows, for want of pixels or wavelengths. Such an image gets a line that says why; on
# the generated scene every step has to succeed.
try() {
    if [[ -z $given ]]; then step "$@"; return; fi
    timed "$@" && return
    local why
    why=$(sed -n 's/^ks: error: //p' "$out/.messages" | head -n 1)
    printf '  %-34s %9s   %s\n' "$1" skipped "$why"
    rows+=("| $1 | skipped | $why |")
    return 1
}

save_info() { "$ks" info "$cube" > "$out/info.txt"; "$ks" info "$cube" --json > "$out/info.json"; }
value_of() { sed -n "s/^  \"$1\": \([0-9]*\),*$/\1/p" "$out/info.json" | head -n 1; }

# Four pixels well inside the four quarters of the image; fewer where the image is too small for four different ones.
spread_pixels() {
    local width=$1 height=$2 x y
    for y in $((height / 4)) $((3 * height / 4)); do
        for x in $((width / 4)) $((3 * width / 4)); do echo "$x,$y"; done
    done | awk '!seen[$0]++'
}

echo
echo "kslib demo"
if [[ -z $given ]]; then
    cube=$out/scene.img
    step "generate a scene" "scene.img, scene_truth/" "$ks" synth "$cube" --size 256x256 --bands 224 --seed 1
fi
step "describe it" "info.txt, info.json" save_info
mapfile -t pixels < <(spread_pixels "$(value_of width)" "$(value_of height)")
step "picture" "quicklook.png" "$ks" quicklook "$cube" "$out/quicklook.png"
step "calibrated spectra, vector plot" "spectra.svg" "$ks" spectrum "$cube" "${pixels[@]}" "$out/spectra.svg"
step "calibrated spectra, bitmap plot" "spectra.png" "$ks" spectrum "$cube" "${pixels[@]}" "$out/spectra.png"
step "calibrated spectra, table" "spectra.csv" "$ks" spectrum "$cube" "${pixels[@]}" "$out/spectra.csv"
step "convert to GeoTIFF and check" "copy.tif" "$ks" convert "$cube" "$out/copy.tif" --check
checked_tif=$(sed -n 's/^ks: checked: //p' "$out/.messages")
step "convert back to ENVI and check" "back.img" "$ks" convert "$out/copy.tif" "$out/back.img" --check
checked_envi=$(sed -n 's/^ks: checked: //p' "$out/.messages")
step "learn 256 code vectors" "vq.tif" "$ks" vq train "$cube" "$out/vq.tif" --vectors 256
encode() { "$ks" vq encode "$cube" "$out/vq.tif" "$@" > "$out/vq-error.txt"; }
step "encode with them" "vq.tif, vq-error.{txt,csv,svg,png}" encode \
    --report "$out/vq-error.csv" --report "$out/vq-error.svg" --report "$out/vq-error.png"
step "decode" "vq-decoded.img" "$ks" vq decode "$out/vq.tif" "$out/vq-decoded.img"

# ---- statistics and regions ----
if try "statistics of the good bands" "stats.csv, covariance.csv" "$ks" stats "$cube" --bands good \
    --covariance "$out/covariance.csv" -o "$out/stats.csv"; then
    counted=$(sed -n 's/^ks: .*stats.csv: //p' "$out/.messages")
fi
regions=()
for pixel in "${pixels[@]}"; do regions+=("point xoff ${pixel%,*} yoff ${pixel#*,} size 1"); done
step "regions" "places.roi" "$ks" roi make "$cube" "${regions[@]}" "$out/places.roi"

# ---- spectra: taken, drawn, brought to a few broad bands, smoothed ----
printf '%s\n' name,wavelength,fwhm blue,490,65 green,560,35 red,665,30 nir,842,115 swir1,1610,90 swir2,2190,180 \
    > "$out/sensor.csv"
if try "spectra of the regions" "places.kslib" "$ks" library take "$cube" "$out/places.kslib" --roi "$out/places.roi" \
    --bands good; then
    try "their plot" "places.png" "$ks" library plot "$out/places.kslib" "$out/places.png" || true
    try "as an ENVI spectral library" "places.sli" "$ks" library export "$out/places.kslib" "$out/places.sli" || true
    if try "resampled to six bands" "places-6.kslib" "$ks" resample "$out/places.kslib" "$out/places-6.kslib" \
        --sensor "$out/sensor.csv"; then
        try "as a table" "places-6.csv" "$ks" library export "$out/places-6.kslib" "$out/places-6.csv" || true
    fi
    try "smoothed" "places-smooth.kslib" "$ks" smooth "$out/places.kslib" "$out/places-smooth.kslib" --width 7 || true
fi

# ---- transforms: there and back ----
pca() { "$ks" transform pca "$cube" "$out/pca.mat" "$@" > "$out/pca.txt"; }
mnf() { "$ks" transform mnf "$cube" "$out/mnf.mat" "$@" > "$out/mnf.txt"; }
try "principal components" "pca.mat, pca.{txt,csv,svg,png}" pca --report "$out/pca.csv" --report "$out/pca.svg" \
    --pictures "$out/pca.png" || true
if try "noise-adjusted components" "mnf.mat, mnf.{txt,csv,svg,png}" mnf --report "$out/mnf.csv" --report "$out/mnf.svg" \
    --pictures "$out/mnf.png"; then
    transformed=$(sed -n 's/^ks: .*mnf.mat: \(.*\); next:.*/\1/p' "$out/.messages")
    step "the image as components" "mnf.img" "$ks" transform apply "$cube" "$out/mnf.mat" "$out/mnf.img"
    step "and back" "mnf-back.img" "$ks" transform invert "$out/mnf.img" "$out/mnf.mat" "$out/mnf-back.img" --like "$cube"
    informative=$(awk -F, 'NR > 1 && $4 >= 1 { n++ } END { print n + 0 }' "$out/mnf.csv")
fi

# ---- fractions of what the regions show ----
if [[ -e $out/places.kslib ]] && try "fractions of these spectra" "fractions.img, fractions_fractions/" "$ks" unmix "$cube" \
    "$out/fractions.img" --endmembers "$out/places.kslib" --sum-to-one --non-negative --pictures; then
    unmixed=$(sed -n 's/^ks: .*fractions.img: //p' "$out/.messages")
fi

# ---- the columns evened out, the atmosphere taken off ----
if try "trend across the columns" "even.img, even.svg" "$ks" brdf "$cube" "$out/even.img" --plot "$out/even.svg"; then
    evened=$(sed -n 's/^ks: .*even.img: //p' "$out/.messages")
fi
try "angles of the sun" "sun.csv" "$ks" sun "$cube" -o "$out/sun.csv" || true
try "angles of the view" "view.csv" "$ks" view "$cube" -o "$out/view.csv" || true
if [[ -z $given ]]; then
    step "the scene's atmosphere as a table" "atmosphere.kslut" "$ks" lut import --radiance "$out/scene_truth/atmosphere.nc" \
        "$out/atmosphere.kslut"
    step "a picture of it" "atmosphere.png" "$ks" lut plot "$out/atmosphere.kslut" "$out/atmosphere.png"
    step "reflectance of the ground" "ground.img" "$ks" reflectance "$out/even.img" "$out/ground.img" \
        --lut "$out/atmosphere.kslut" --water 2
    step "its spectra" "ground.svg" "$ks" spectrum "$out/ground.img" "${pixels[@]}" "$out/ground.svg"
fi
"$ks" modtran cards --example > "$out/cards.json"
step "radiative-transfer input cards" "cards.json, tape5" "$ks" modtran cards "$out/cards.json" -o "$out/tape5"

compression=$(grep 'code vectors:' "$out/vq-error.txt")
# The band with the smallest, the middle and the largest error among the good ones.
errors=$(awk -F, 'NR > 1 && ($3 == "plot" || $3 == "bmask") { print $4 "," $1 }' "$out/vq-error.csv" | sort -g |
    awk -F, '{ rmse[NR] = $1; band[NR] = $2 } END { if (NR) { m = int((NR + 1) / 2);
        printf "RMSE of a band, stored units: %.4g (b%d) to %.4g (b%d), median %.4g", rmse[1], band[1], rmse[NR], band[NR], rmse[m] } }')
rm -f "$out/.messages"
total=$(seconds "$started" "$EPOCHREALTIME")

{
    echo "# kslib demo"
    echo
    echo "Image: \`$cube\`"
    echo
    echo '```'
    sed '/^$/,$d' "$out/info.txt"
    echo '```'
    echo
    echo "| step | time | made |"
    echo "|---|---|---|"
    printf '%s\n' "${rows[@]}"
    echo
    echo "Copies, compared with their source sample by sample and entry by entry:"
    echo
    echo "- copy.tif: $checked_tif"
    echo "- back.img: $checked_envi"
    echo
    echo "Vector quantization (errors of every band: vq-error.csv):"
    echo
    echo "- $compression"
    echo "- $errors"
    echo
    [[ -n ${counted:-} ]] && printf 'Statistics (stats.csv, covariance.csv): %s\n\n' "$counted"
    if [[ -n ${transformed:-} ]]; then
        echo "Noise-adjusted transform (mnf.csv): $transformed; $informative components hold as much signal as noise, or more."
        echo
        echo "![the first components](mnf.png)"
        echo
    fi
    [[ -n ${unmixed:-} ]] && printf 'Unmixing: %s\n\n' "$unmixed"
    [[ -n ${evened:-} ]] && printf 'Columns evened out: %s\n\n![means of the columns](even.svg)\n\n' "$evened"
    [[ -e $out/places.png ]] && printf '![spectra of the regions](places.png)\n\n'
    echo "![errors of vector quantization](vq-error.png)"
    echo
    echo "![quicklook](quicklook.png)"
    echo
    echo "![spectra](spectra.png)"
} > "$summary"

echo
sed '/^$/,$d' "$out/info.txt" | sed 's/^/  /'
echo
echo "  copy.tif: $checked_tif"
echo "  back.img: $checked_envi"
echo "  vq.tif: $compression"
echo "          $errors"
[[ -n ${counted:-} ]] && echo "  stats.csv: $counted"
[[ -n ${transformed:-} ]] && echo "  mnf.mat: $transformed; $informative of them hold as much signal as noise, or more"
[[ -n ${unmixed:-} ]] && echo "  fractions.img: $unmixed"
[[ -n ${evened:-} ]] && echo "  even.img: $evened"
echo
echo "Done in $total s. Look at $out/quicklook.png, $out/spectra.svg and $out/summary.md."
