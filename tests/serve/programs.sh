# shellcheck shell=sh
# The programs that read `plendix serve`, as docs/serve.md has them: part of scripts/bridges, which has the
# commands that begin and count, and $source, $plendix and $folder.
# shellcheck disable=SC2154

# `plendix serve` with a camera of each codec, and another one, over TLS, for those with a password or token.
page=http://127.0.0.1:8069
safe=https://127.69.1.1:8070
token=a-token-of-32-characters-or-more
camera_table() { printf '[[camera]]\naddress = "%s"\nname = "%s"\ncodec = "%s"\n' "$@"; }
until_ready() { curl -sf --retry 20 --retry-all-errors --retry-delay 1 "$@" >/dev/null; }
start_serve() {
    cameras 127.69.0.3 1 105
    cameras 127.69.0.4 1 105
    silenced=$! # by a recipe
    cameras 127.69.0.5 1 105
    (
        printf '[record]\noutput = "%s"\nsegment = "10s"\n' "$folder/recording"
        camera_table 127.69.0.3 'Gate \"<b>\"' jpeg
        camera_table 127.69.0.4 Yard h264
    ) >serve.toml
    camera_table 127.69.0.5 Door h264 >safe.toml
    umask 077
    echo right-password | "$plendix" password anna >passwords
    echo $token >tokens
    openssl req -x509 -nodes -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -keyout key.pem -out cert.pem \
        -days 2 -subj /CN=plendix -addext subjectAltName=IP:127.69.1.1 2>openssl.log
    umask 022
    background serve.log "$plendix" serve --config serve.toml
    background safe.log "$plendix" serve --config safe.toml --listen ${safe#https://} \
        --password-file passwords --token-file tokens --tls-cert cert.pem --tls-key key.pem
    until_ready $page/readyz && until_ready --cacert cert.pem $safe/readyz ||
        { tail -n 5 serve.log safe.log >&2 && exit 1; }
}

# Each prints how many pictures, answers, ... were right.
curl_routes() { "$source/tests/serve/api_check.py" $page 2>>program.log; }
curl_login() { # each line: the status to get, and what is asked
    right=0
    while read -r status rest; do
        # shellcheck disable=SC2086
        got=$(curl -s --cacert cert.pem -o curl.out -w '%{http_code}' -H 'X-Plendix: 1' $rest) || true
        if [ "$got" = "$status" ]; then
            right=$((right + 1))
        else
            echo "$got, not $status: $rest" >>program.log
        fi
    done <<END
401 $safe/api/cameras
401 $safe/camera/1.mkv
401 --oauth2-bearer wrong $safe/metrics
200 --oauth2-bearer $token $safe/api/cameras
200 --oauth2-bearer $token $safe/camera/1.jpg
200 $safe/healthz
403 -d {"name":"anna","password":"wrong"} $safe/api/login
200 -c jar -d {"name":"anna","password":"right-password"} $safe/api/login
200 -b jar $safe/api/cameras/1
403 -b jar -H Origin:https://elsewhere.example -d {"on":true} $safe/api/cameras/1/relay
204 -b jar -d {"on":true} $safe/api/cameras/1/relay
204 -b jar -c jar -X POST $safe/api/logout
401 -b jar $safe/api/cameras/1
421 --connect-to elsewhere.example:8069:127.0.0.1:8069 http://elsewhere.example:8069/api/cameras
END
    echo $right
}
decoded() { # 60 pictures of an address without a word of complaint
    limited ffmpeg -nostdin -v warning -xerror "$@" -frames:v 60 -f framemd5 -y decoded.txt || true
    [ -s program.log ] || grep -vc '^#' decoded.txt
}
ffmpeg_serve_mjpeg() { decoded -i $page/camera/1.mjpeg; }
ffmpeg_serve_mkv() { decoded -i $page/camera/1.mkv; }
ffmpeg_serve_mkv_h264() { decoded -i $page/camera/2.mkv; }
ffmpeg_serve_ts() { decoded -i $page/camera/2.ts; }
ffmpeg_serve_mp4() { decoded -i $page/camera/2.mp4; }
ffmpeg_serve_token() {
    line_end=$(printf '\r\n.')
    decoded -ca_file cert.pem -headers "Authorization: Bearer $token${line_end%.}" -i $safe/camera/1.mkv
}
ffprobe_serve() { # codec and size of each
    for stream in 1.mjpeg=mjpeg 1.mkv=mjpeg 2.mkv=h264 2.ts=h264 2.mp4=h264 1.jpg=mjpeg; do
        found=$(timeout 20 ffprobe -v error -show_entries stream=codec_name,width,height -of csv=p=0 \
            $page/camera/${stream%=*} 2>>program.log | head -n 1)
        echo "$stream: $found" >>program.log
        [ "$found" != "${stream#*=},640,480" ] || echo right
    done | grep -c right
}
mpv_shows() { # that it ends with the last of them means that it had so many
    limited mpv --no-config --vo=null --msg-level=all=warn --frames=60 "$1" && [ ! -s program.log ] && echo 60
}
mpv_serve_mkv() { mpv_shows $page/camera/1.mkv; }
mpv_serve_mkv_h264() { mpv_shows $page/camera/2.mkv; }
mpv_serve_mp4() { mpv_shows $page/camera/2.mp4; }
motion_serve() {
    mkdir motion-serve
    sed "s|/var/lib/motion|$folder/motion-serve|" "$source/docs/examples/motion.conf" >serve-motion.conf
    timeout -s INT 15 motion -n -c serve-motion.conf >>program.log 2>&1 || true
    find motion-serve -name '*.jpg' | wc -l
}
promtool_metrics() { # how many families
    curl -s $page/metrics >metrics.txt
    limited promtool check metrics <metrics.txt && [ ! -s program.log ] && grep -c '^# TYPE' metrics.txt
}
answer() { curl -s --data-urlencode "query=$1" http://127.0.0.1:9090/api/v1/query; }
asked() { answer "$1" | grep -q '"result":\[{'; }
within() { # so many seconds there is an answer to this
    for _ in $(seq "$1"); do ! asked "$2" || { echo right && return 0; }; sleep 1; done
    echo "no answer: $2; rates: $(answer 'rate(plendix_camera_frames_total[30s])')" >>program.log
}
prometheus_scrapes() { # a minute, in shorter intervals than in earnest
    sed 's/15s/2s/' "$source/docs/examples/prometheus.yml" >prometheus.yml
    sed 's/for: 1m/for: 4s/' "$source/docs/examples/plendix-alerts.yml" >plendix-alerts.yml
    for job in safe stranger; do
        printf '  - job_name: %s\n    scheme: https\n    tls_config: {ca_file: cert.pem}\n' $job
        printf '    static_configs: [{targets: ["%s"]}]\n' ${safe#https://}
        [ $job = stranger ] || printf '    authorization: {credentials_file: tokens}\n'
    done >>prometheus.yml
    promtool check config prometheus.yml >>program.log 2>&1 || return 0
    timeout 180 prometheus --config.file=prometheus.yml --storage.tsdb.path=tsdb \
        --web.listen-address=127.0.0.1:9090 >prometheus.log 2>&1 &
    server=$!
    sleep 60
    {
        within 5 'up{job="plendix"} == 1 and resets(up[1m]) == 0'
        within 5 'up{job="safe"} == 1'
        within 5 'up{job="stranger"} == 0'
        within 5 'count(abs(rate(plendix_camera_frames_total[30s]) - 15) < 1) == 3'
        within 5 'count(increase(plendix_camera_bytes_total[30s]) > 1e5) == 3'
        within 5 'count(plendix_camera_lost_frames_total + plendix_camera_timeouts_total == 0) == 3'
        within 5 'abs(rate(plendix_output_frames_total{output="recording"}[30s]) - 30) < 2'
        within 5 'absent(ALERTS)'
        kill -STOP "$silenced"
        within 40 'ALERTS{alertname="CameraNotLive",name="Yard",alertstate="firing"}'
        kill -CONT "$silenced"
        within 40 'absent(ALERTS{alertname="CameraNotLive"})'
    } | grep -c right
    kill $server
    wait $server || true
}

serve_recipes() {
    start_serve
    recipe curl curl_routes 53 answers
    recipe curl curl_login 14 answers
    recipe ffprobe ffprobe_serve 6 addresses
    recipe ffmpeg ffmpeg_serve_mjpeg 60
    recipe ffmpeg ffmpeg_serve_mkv 60
    recipe ffmpeg ffmpeg_serve_mkv_h264 60
    recipe ffmpeg ffmpeg_serve_ts 60
    recipe ffmpeg ffmpeg_serve_mp4 60
    recipe ffmpeg ffmpeg_serve_token 60
    recipe mpv mpv_serve_mkv 60
    recipe mpv mpv_serve_mkv_h264 60
    recipe mpv mpv_serve_mp4 60
    recipe motion motion_serve 10
    recipe promtool promtool_metrics 30 families
    recipe prometheus prometheus_scrapes 10 questions
}
