// Messages from one client to another through the server, counted with the benchmark package of the
// server's own Go client.
//
//	bench_tool [URL] [BYTES] [MESSAGES]
package main

import (
	"fmt"
	"os"
	"strconv"
	"sync"
	"time"

	"github.com/nats-io/nats.go"
	"github.com/nats-io/nats.go/bench"
)

func check(err error) {
	if err != nil {
		fmt.Fprintln(os.Stderr, "bench_tool:", err)
		os.Exit(1)
	}
}

func number(position int, usual int) int {
	if len(os.Args) <= position {
		return usual
	}
	value, err := strconv.Atoi(os.Args[position])
	check(err)
	return value
}

func connect(url string) *nats.Conn {
	connection, err := nats.Connect(url)
	check(err)
	return connection
}

func main() {
	url := nats.DefaultURL
	if len(os.Args) > 1 {
		url = os.Args[1]
	}
	size, count := number(2, 117<<10), number(3, 50000)
	const subject = "bench"
	result := bench.NewBenchmark("core", 1, 1)

	subscriber := connect(url)
	var ready, done sync.WaitGroup
	ready.Add(1)
	done.Add(2)
	go func() {
		defer done.Done()
		came := 0
		var first time.Time
		end := make(chan time.Time, 1)
		subscription, err := subscriber.Subscribe(subject, func(*nats.Msg) {
			came++
			if came == 1 {
				first = time.Now()
			}
			if came == count {
				end <- time.Now()
			}
		})
		check(err)
		check(subscription.SetPendingLimits(-1, -1))
		check(subscriber.Flush())
		ready.Done()
		last := <-end
		result.AddSubSample(bench.NewSample(count, size, first, last, subscriber))
	}()
	ready.Wait()
	publisher := connect(url)
	go func() {
		defer done.Done()
		payload := make([]byte, size)
		start := time.Now()
		for i := 0; i < count; i++ {
			check(publisher.Publish(subject, payload))
		}
		check(publisher.Flush())
		result.AddPubSample(bench.NewSample(count, size, start, time.Now(), publisher))
	}()
	done.Wait()
	result.Close()
	fmt.Println(result.Report())
}
